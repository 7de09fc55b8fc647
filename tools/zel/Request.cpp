// zel request
#include <libzel/libzel.hpp>

#include <memory>
#include <optional>

#include "Arguments.h"
#include "Commands.h"
#include "Failure.h"
#include "Opening.h"
#include "Statistics.h"

namespace zeltool {
namespace {

constexpr uint32_t kAnswerMs = 1000;
constexpr size_t kPreviewWidth = 60;

struct RequestOptions {
  std::string device;
  uint32_t port = 0;
  uint32_t group = 0;
  uint32_t offset = 0;
  PayloadSource payload;
  std::string show = "auto";
  Patience patience;
  uint32_t count = 0;
  uint32_t intervalMs = 0;
  bool summary = false;
};

struct TimedAnswer {
  int32_t error = 0;
  Bytes payload;
  std::string reason;  // why the link failed, if it did
  double milliseconds = 0;
};

class Requester {
 public:
  Requester(const RequestOptions& options, Context& context)
      : options_(options),
        context_(context),
        payload_(ReadPayload(options.payload, zel::kMaxPayload)),
        budget_(options.patience) {}

  int Run() {
    Opened opened = OpenDevice(options_.device, options_.patience, budget_, context_);
    return options_.count == 0 ? RunOnce(opened) : RunSeries(opened);
  }

 private:
  int RunOnce(Opened& opened) {
    const auto answer = Ask(opened, budget_.Take(AnswerTime(), "ask " + opened.host));
    if (!answer) return kInterrupted;
    if (context_.output.IsJson()) {
      ShowObject(1, *answer);
    } else {
      Show(answer->payload);
    }
    if (answer->error != ZEL_OK) throw LibraryFailure(Describe(opened, *answer), answer->error);
    return kDone;
  }

  int RunSeries(Opened& opened) {
    for (uint32_t number = 1; number <= options_.count; ++number) {
      if (number > 1 && context_.stopper.Sleep(options_.intervalMs / 1000.0)) break;
      if (!context_.output.IsGood()) break;
      const auto answer = Ask(opened, AnswerTime());
      if (!answer) break;
      ++sent_;
      if (answer->error == ZEL_OK) {
        times_.Add(answer->milliseconds);
      } else {
        onlyTimeouts_ = onlyTimeouts_ && answer->error == ZEL_E_TIMEOUT;
      }
      if (!options_.summary) ShowLine(number, *answer);
    }
    ShowSummary();
    if (times_.Count() == sent_) return kDone;
    return onlyTimeouts_ ? kNothingArrived : kFailed;
  }

  zel::Milliseconds AnswerTime() const {
    return zel::Milliseconds(options_.patience.timeoutMs > 0 ? options_.patience.timeoutMs : kAnswerMs);
  }

  // Nothing when it was interrupted.
  std::optional<TimedAnswer> Ask(Opened& opened, zel::Milliseconds time) {
    const auto start = Clock::now();
    const auto arrived = std::make_shared<std::optional<zel::Answer>>();
    Stopper& stopper = context_.stopper;
    const zel::Address address{options_.group, options_.offset};
    const auto asked =
        opened.connection.RequestAsync(static_cast<uint16_t>(options_.port), address, payload_, time,
                                       [arrived, &stopper](zel::Answer answer) {
                                         stopper.Update([&] { arrived->emplace(std::move(answer)); });
                                       });
    TimedAnswer timed;
    if (!asked) {
      timed.error = asked.Code();
      timed.reason = opened.connection.LastFailure();
      return timed;
    }
    if (!stopper.Wait(std::nullopt, [&] { return arrived->has_value(); })) return std::nullopt;
    timed.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    timed.error = (*arrived)->Code();
    timed.reason = (*arrived)->Reason();
    timed.payload = std::move(***arrived);
    return timed;
  }

  static std::string Describe(const Opened& opened, const TimedAnswer& answer) {
    if (!answer.reason.empty()) return "no answer, the connection is lost: " + answer.reason;
    if (answer.error == ZEL_E_TIMEOUT) return "no answer from " + opened.host;
    if (answer.error == ZEL_E_DISCONNECTED) return "no answer, the connection is lost";
    return "the answer is an error";
  }

  void Show(std::span<const uint8_t> payload) {
    const bool text = options_.show == "text" || (options_.show == "auto" && IsText(payload));
    if (options_.show == "raw") return context_.output.Raw(AsText(payload));
    if (!text) return context_.output.Raw(HexDump(payload, BytesPerLine()));
    if (payload.empty()) return;
    if (IsText(payload)) {
      context_.output.Raw(AsText(payload));
      if (payload.back() != '\n') context_.output.Raw("\n");
    } else {
      context_.output.Line(Printable(AsText(payload)));
    }
  }

  size_t BytesPerLine() const {
    const size_t columns = context_.output.IsLive() ? context_.output.Size().columns : 80;
    return columns >= 78 ? 16 : columns >= 45 ? 8 : 4;
  }

  void ShowObject(uint32_t number, const TimedAnswer& answer) {
    Record record;
    record.Number("number", number).Real("milliseconds", answer.milliseconds).Number("error", answer.error);
    if (answer.error != ZEL_OK) record.Text("errorText", TextOf(answer.error));
    context_.output.Object(record.Payload(answer.payload));
  }

  void ShowLine(uint32_t number, const TimedAnswer& answer) {
    if (context_.output.IsJson()) return ShowObject(number, answer);
    const std::string head = PadLeft(std::to_string(number), 5) + "  ";
    if (answer.error != ZEL_OK) return context_.output.Line(head + ErrorText(answer.error));
    const auto begin = std::span(answer.payload).first(std::min(kPreviewWidth / 3, answer.payload.size()));
    std::string preview = IsText(answer.payload) && answer.payload.size() <= kPreviewWidth
                              ? Printable(AsText(answer.payload))
                              : HexBytes(begin) + (begin.size() < answer.payload.size() ? " ..." : "");
    context_.output.Line(head + PadLeft(Fixed(answer.milliseconds, 3), 9) + " ms  " +
                         PadLeft(ReadableSize(static_cast<double>(answer.payload.size())), 9) + "  " +
                         preview);
  }

  void ShowSummary() {
    if (context_.output.IsJson()) {
      Record record;
      record.Flag("summary", true).Number("requests", sent_).Number("answers", Answers());
      if (times_.Count() > 0) {
        record.Real("minimum", times_.Quantile(0)).Real("median", times_.Quantile(0.5));
        record.Real("percentile99", times_.Quantile(0.99)).Real("maximum", times_.Quantile(1));
      }
      context_.output.Object(record);
      return;
    }
    context_.output.Line(Counted(sent_, "request") + ", " + Counted(times_.Count(), "answer"));
    if (times_.Count() == 0) return;
    context_.output.Words("minimum " + Fixed(times_.Quantile(0), 3) + " ms, median " +
                          Fixed(times_.Quantile(0.5), 3) + " ms, 99% " + Fixed(times_.Quantile(0.99), 3) +
                          " ms, maximum " + Fixed(times_.Quantile(1), 3) + " ms");
  }

  int64_t Answers() const { return static_cast<int64_t>(times_.Count()); }

  const RequestOptions& options_;
  Context& context_;
  Bytes payload_;
  Budget budget_;
  Statistics times_;
  uint32_t sent_ = 0;
  bool onlyTimeouts_ = true;
};

constexpr const char* kRequestHelp = R"(Examples:
  zel request 192.168.1.20.0.1 --port 600 --group 1 --offset 2 "How are you?"
  zel request 192.168.1.20 -p 600 -g 0x1000 -o 1 --hex "01 02 ff" --show hex
  zel request 192.168.1.20 -p 600 --file question.bin --show raw >answer.bin
  zel request press-4 -p 600 -g 1 -o 2 hello --count 100 --interval 10

The answer is shown as text if it is text, as a hex dump if not. With --count, each
answer has a line with its time, and a summary follows. The status is 1 when the
device answers with an error, 27 when it does not answer in time.

--timeout bounds finding the device, connecting and the answer together, and each answer
of a series. Without it an answer may take 1000 ms, and the rest has times of its own.)";

}  // namespace

void AddRequest(CLI::App& app, Task& task) {
  CLI::App* command = app.add_subcommand("request", "Ask a device and show its answer");
  auto options = std::make_shared<RequestOptions>();
  AddDevice(*command, options->device);
  AddPayload(*command, options->payload);
  AddNumber(*command, "-p,--port", options->port, 65535, "Router port of the one who is asked")->required();
  AddNumber(*command, "-g,--group", options->group, 0xFFFFFFFFU, "Index group; 0 if not given");
  AddNumber(*command, "-o,--offset", options->offset, 0xFFFFFFFFU, "Index offset; 0 if not given");
  command->add_option("--show", options->show, "How to show the answer: auto, text, hex or raw")
      ->check(CLI::IsMember({"auto", "text", "hex", "raw"}, CLI::ignore_case).description(""))
      ->type_name("HOW");
  AddPatience(*command, options->patience, "Time for all up to the answer; see below");
  AddNumber(*command, "-c,--count", options->count, 1000000000, "Ask so often, and measure");
  AddNumber(*command, "-i,--interval", options->intervalMs, 3600000,
            "Time between an answer and the next request")
      ->type_name("MS");
  command->add_flag("--summary", options->summary, "With --count, show the summary only");
  command->footer(kRequestHelp);
  command->callback([options, &task] {
    task.run = [options](Context& context) { return Requester(*options, context).Run(); };
  });
}

}  // namespace zeltool
