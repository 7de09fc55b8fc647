#include "Metrics.h"

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <utility>
#include <vector>

namespace zelgate {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

// Collects families of one label or none.
class FamilyList {
 public:
  explicit FamilyList(std::vector<ClientMetric::Label> common) : common_(std::move(common)) {}

  FamilyList& Gauge(const std::string& name, const std::string& help) {
    return Begin(name, help, MetricType::Gauge);
  }
  FamilyList& Counter(const std::string& name, const std::string& help) {
    return Begin(name, help, MetricType::Counter);
  }
  FamilyList& Value(double value, const std::string& label = "", const std::string& is = "") {
    ClientMetric metric;
    metric.label = common_;
    if (!label.empty()) metric.label.push_back({label, is});
    metric.gauge.value = value;
    metric.counter.value = value;
    families_.back().metric.push_back(std::move(metric));
    return *this;
  }
  std::string Text() const { return prometheus::TextSerializer().Serialize(families_); }

 private:
  FamilyList& Begin(const std::string& name, const std::string& help, MetricType type) {
    MetricFamily family;
    family.name = name;
    family.help = help;
    family.type = type;
    families_.push_back(std::move(family));
    return *this;
  }

  std::vector<ClientMetric::Label> common_;
  std::vector<MetricFamily> families_;
};

double Number(uint64_t value) { return static_cast<double>(value); }

void AddEvents(FamilyList& list, const GateFigures& figures) {
  const EventWriter::Figures& events = figures.events;
  list.Counter("zelgate_events_acknowledged_total", "Events that the stream has acknowledged.")
      .Value(Number(events.acknowledged));
  list.Counter("zelgate_events_repeated_total", "Events published again for want of an acknowledgement.")
      .Value(Number(events.repeated));
  list.Counter("zelgate_events_refused_total", "Events that can never be published, each told as a gap.")
      .Value(Number(events.refused));
  list.Gauge("zelgate_events_dropped", "Messages dropped by the routes of the devices that are served now.")
      .Value(Number(figures.dropped));
  list.Gauge("zelgate_events_under_way", "Events published and not acknowledged yet.")
      .Value(Number(events.underWay));
  list.Gauge("zelgate_events_window", "How many may be under way.").Value(Number(events.window));
}

void AddRequests(FamilyList& list, const Asker::Figures& requests) {
  list.Counter("zelgate_requests_total", "Requests and publications to devices, by what became of them.")
      .Value(Number(requests.answered), "verdict", "answered")
      .Value(Number(requests.deviceErrors), "verdict", "device-error")
      .Value(Number(requests.notSent), "verdict", "not-sent")
      .Value(Number(requests.mayBeSent), "verdict", "may-be-sent")
      .Value(Number(requests.written), "verdict", "written");
}

void AddStream(FamilyList& list, const StreamUse& stream) {
  if (stream.maxBytes == 0) return;
  list.Gauge("zelgate_stream_messages", "Events in the site's stream.").Value(Number(stream.messages));
  list.Gauge("zelgate_stream_bytes", "Bytes of the site's stream.").Value(Number(stream.bytes));
  list.Gauge("zelgate_stream_max_bytes", "How many it may have; a full one takes no event.")
      .Value(Number(stream.maxBytes));
}

}  // namespace

std::string MetricsText(const GateFigures& figures) {
  FamilyList list({{"site", figures.site}});
  list.Gauge("zelgate_nats_up", "1 while there is a connection to NATS.").Value(figures.isNatsUp ? 1 : 0);
  list.Gauge("zelgate_serving", "1 while this process may serve devices.").Value(figures.isServing ? 1 : 0);
  list.Gauge("zelgate_shards", "Shards of the site that this process has.").Value(Number(figures.shards));
  list.Gauge("zelgate_devices", "Devices that this process serves.").Value(Number(figures.devices));
  list.Gauge("zelgate_devices_up", "Those of them that are connected.").Value(Number(figures.devicesUp));
  list.Gauge("zelgate_devices_left_out",
             "Devices of its shards that are not served because of limits.devices.")
      .Value(Number(figures.devicesLeftOut));
  AddEvents(list, figures);
  AddRequests(list, figures.requests);
  AddStream(list, figures.stream);
  return list.Text();
}

std::string ProbeText(const DeviceFacts& facts, const DeviceLink& link) {
  FamilyList list({});
  list.Gauge("zelgate_probe_up", "1 while the device is connected.")
      .Value(link.state == LinkState::kUp ? 1 : 0);
  FamilyList info({{"id", facts.id},
                   {"name", facts.name},
                   {"serial", facts.serial},
                   {"address", facts.address},
                   {"state", NameOf(link.state)},
                   {"since", link.since},
                   {"served_by", link.servedBy}});
  info.Gauge("zelgate_probe_info", "What is known of the device.").Value(1);
  return list.Text() + info.Text();
}

Health HealthOf(const GateFigures& figures) {
  if (!figures.isNatsUp) return {false, "no connection to NATS; see whether its server runs\n"};
  if (!figures.isServing) {
    return {false,
            "this process may not serve devices now: its lease is not renewed; see whether the server's "
            "JetStream works\n"};
  }
  return {true, "serves " + std::to_string(figures.devices) + " devices of " + figures.site + "\n"};
}

}  // namespace zelgate
