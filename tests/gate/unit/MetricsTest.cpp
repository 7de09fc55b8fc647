#include "Metrics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace zelgate {
namespace {

GateFigures Figures() {
  GateFigures figures;
  figures.site = "north";
  figures.isNatsUp = true;
  figures.isServing = true;
  figures.devices = 3;
  figures.devicesUp = 2;
  figures.events.acknowledged = 1234567;
  figures.requests.notSent = 4;
  figures.stream = {10, 800, 1000};
  return figures;
}

bool HasLine(const std::string& text, const std::string& line) {
  return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

TEST(MetricsTest, EveryFigureHasItsLine) {
  const std::string text = MetricsText(Figures());
  for (const char* const line :
       {R"(zelgate_nats_up{site="north"} 1)", R"(zelgate_devices{site="north"} 3)",
        R"(zelgate_devices_up{site="north"} 2)", R"(zelgate_events_acknowledged_total{site="north"} 1234567)",
        R"(zelgate_requests_total{site="north",verdict="not-sent"} 4)",
        R"(zelgate_stream_bytes{site="north"} 800)", "# TYPE zelgate_events_acknowledged_total counter",
        "# TYPE zelgate_devices gauge"}) {
    EXPECT_TRUE(HasLine(text, line)) << line << "\n" << text;
  }
}

TEST(MetricsTest, ThereAreFarLessThan200Series) {
  std::istringstream lines(MetricsText(Figures()));
  size_t series = 0;
  for (std::string line; std::getline(lines, line);) series += line.starts_with('#') ? 0U : 1U;
  EXPECT_GT(series, 15U);
  EXPECT_LT(series, 60U);
}

TEST(MetricsTest, AStreamThatIsNotKnownIsLeftOut) {
  GateFigures figures = Figures();
  figures.stream = {};
  EXPECT_EQ(MetricsText(figures).find("zelgate_stream"), std::string::npos);
}

TEST(MetricsTest, ADeviceIsProbed) {
  const std::string text = ProbeText({"10.0.0.7.0.1", "10.0.0.7", "press 7", "4711", false},
                                     {LinkState::kUp, "2026-11-21T10:00:00.000Z", "gate-1", ""});
  EXPECT_TRUE(HasLine(text, "zelgate_probe_up 1")) << text;
  EXPECT_NE(text.find(R"(zelgate_probe_info{id="10.0.0.7.0.1",name="press 7",serial="4711")"),
            std::string::npos)
      << text;
}

TEST(MetricsTest, ANameCannotAddASeries) {
  const std::string text =
      ProbeText({"10.0.0.7.0.1", "10.0.0.7", "x\"} 1\nzelgate_probe_up 1\n", "\\", false}, {});
  EXPECT_TRUE(HasLine(text, "zelgate_probe_up 0")) << text;
  EXPECT_FALSE(HasLine(text, "zelgate_probe_up 1")) << text;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 6) << text;
}

TEST(MetricsTest, AProcessThatServesIsHealthy) {
  const Health health = HealthOf(Figures());
  EXPECT_TRUE(health.isGood);
  EXPECT_EQ(health.text, "serves 3 devices of north\n");
}

TEST(MetricsTest, AProcessWithoutNatsSaysSo) {
  GateFigures figures = Figures();
  figures.isNatsUp = false;
  EXPECT_FALSE(HealthOf(figures).isGood);
  EXPECT_NE(HealthOf(figures).text.find("no connection to NATS"), std::string::npos);
}

TEST(MetricsTest, AProcessWithoutItsLeaseSaysSo) {
  GateFigures figures = Figures();
  figures.isServing = false;
  EXPECT_FALSE(HealthOf(figures).isGood);
  EXPECT_NE(HealthOf(figures).text.find("lease"), std::string::npos);
}

}  // namespace
}  // namespace zelgate
