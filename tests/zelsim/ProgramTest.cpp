// The program itself: what it prints, how it ends, what it traces.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Support.h"

namespace zelsim {
namespace {

using test::BuildRequest;
using test::BuildTopicRequest;
using test::Eventually;
using test::RawClient;
using test::ReadTextFile;

// The simulator as a process of its own; stops it when the test did not.
class Program {
 public:
  explicit Program(std::vector<std::string> arguments) {
    int ends[2];
    if (pipe(ends) != 0) return;
    process_ = fork();
    if (process_ == 0) {
      dup2(ends[1], STDOUT_FILENO);
      close(ends[0]);
      std::vector<char*> argv{const_cast<char*>(ZELSIM_PROGRAM)};
      for (std::string& argument : arguments) argv.push_back(argument.data());
      argv.push_back(nullptr);
      execv(ZELSIM_PROGRAM, argv.data());
      _exit(127);
    }
    close(ends[1]);
    output_ = fdopen(ends[0], "r");
  }
  ~Program() {
    if (process_ > 0) EndWith(SIGKILL);
    if (output_ != nullptr) fclose(output_);
  }

  std::string ReadLine() {
    char line[512];
    return output_ != nullptr && fgets(line, sizeof line, output_) != nullptr ? line : "";
  }

  // The exit status, or -1 for another end.
  int EndWith(int signal) {
    kill(process_, signal);
    return WaitForEnd();
  }
  int WaitForEnd() {
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t process_ = 0;
  FILE* output_ = nullptr;
};

// The port behind the last occurrence of "local=127.0.0.1:" in a trace's listen line.
uint16_t TracedPort(const std::string& trace) {
  const std::string mark = "event=listen local=127.0.0.1:";
  const size_t at = trace.find(mark);
  return at == trace.npos ? 0 : static_cast<uint16_t>(std::stoul(trace.substr(at + mark.size())));
}

TEST(Program, PrintsReadyAndEndsWithZeroOnSignals) {
  for (const int signal : {SIGTERM, SIGINT}) {
    Program program({"--listen", "127.0.0.1:0"});
    EXPECT_EQ(program.ReadLine(), "ready\n");
    EXPECT_EQ(program.EndWith(signal), 0);
    EXPECT_EQ(program.ReadLine(), "");
  }
}

TEST(Program, EndsWithZeroWhileAClientIsConnected) {
  test::TemporaryDirectory directory;
  const std::string trace = directory.Path() + "/trace";
  Program program({"--listen", "127.0.0.1:0", "--trace", trace});
  ASSERT_EQ(program.ReadLine(), "ready\n");
  RawClient client(TracedPort(ReadTextFile(trace)));
  client.Send(BuildRequest({}));
  ASSERT_TRUE(client.ReadFrame());
  EXPECT_EQ(program.EndWith(SIGTERM), 0);
  EXPECT_TRUE(client.ReadAll().empty());
  EXPECT_EQ(client.State(), test::End::kClosed);
}

TEST(Program, TellsItsVersion) {
  Program program({"--version"});
  EXPECT_EQ(program.ReadLine(), "zelsim " ZELSIM_EXPECTED_VERSION "\n");
  EXPECT_EQ(program.WaitForEnd(), 0);
}

TEST(Program, RefusesABadCommandLine) {
  Program program({"--listen", "nowhere"});
  EXPECT_EQ(program.WaitForEnd(), 1);
}

TEST(Program, TracesEveryFrameAsOneLine) {
  test::TemporaryDirectory directory;
  const std::string trace = directory.Path() + "/trace";
  Program program({"--listen", "127.0.0.1:0", "--trace", trace});
  ASSERT_EQ(program.ReadLine(), "ready\n");
  RawClient client(TracedPort(ReadTextFile(trace)));
  client.Send(BuildTopicRequest("sub", "a b"));
  client.Send(BuildRequest({.port = 600, .invokeId = 3, .payload = {1}, .idGroup = 0x1000, .idOffset = 2}));
  ASSERT_TRUE(client.ReadFrame());
  const auto holds = [&](const char* text) {
    return Eventually([&] { return ReadTextFile(trace).find(text) != std::string::npos; });
  };
  EXPECT_TRUE(
      holds("dir=in frame=1 port=103 version=1 cmd=9 invokeId=77 error=0 idGroup=0x0 idOffset=0x0 "
            "length=62 payload=41 verb=sub topic=a%20b data=0 recordGroup=0x0 recordOffset=0x0\n"));
  EXPECT_TRUE(
      holds("dir=in frame=2 port=600 version=1 cmd=9 invokeId=3 error=0 idGroup=0x1000 idOffset=0x2 "
            "length=22 payload=1\n"));
  EXPECT_TRUE(holds("dir=out answers=2 port=600 version=1 cmd=9 invokeId=3 error=0 length=14 payload=1\n"));
}

TEST(Program, TracesABadFrame) {
  test::TemporaryDirectory directory;
  const std::string trace = directory.Path() + "/trace";
  Program program({"--listen", "127.0.0.1:0", "--trace", trace});
  ASSERT_EQ(program.ReadLine(), "ready\n");
  RawClient client(TracedPort(ReadTextFile(trace)));
  client.Send(Bytes{0, 1, 5, 0, 0, 0, 0, 0});
  client.ReadAll();
  EXPECT_NE(ReadTextFile(trace).find("reason=length frame=1 port=5 version=1 length=0\n"), std::string::npos);
}

}  // namespace
}  // namespace zelsim
