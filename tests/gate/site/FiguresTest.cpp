// What a process tells about itself over HTTP, at the site north, and Debian's Prometheus reading it. Of the
// two devices one is simulated on the command's host, the other is not there.
#include <gtest/gtest.h>

#include <httplib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <memory>

#include "DeviceTable.h"
#include "GateProcess.h"
#include "SiteTest.h"

namespace gatelab {
namespace {

constexpr const char* kAddress = "127.0.0.1:9470";

struct Page {
  int status = 0;
  std::string text;
};

Page Get(const std::string& path, const std::string& address = kAddress) {
  httplib::Client client("http://" + address);
  const auto result = client.Get(path);
  return result ? Page{result->status, result->body} : Page();
}

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

class FiguresTest : public SiteTest {
 protected:
  static void SetUpTestSuite() {
    SiteTest::SetUpTestSuite();
    PutDevice("127.0.0.2", "press \"7\"\n");
    PutDevice("127.0.0.3", "press 8");
    gate = new GateProcess({"run", "--config", WriteSiteConfig("north"), "--http", kAddress});
    EXPECT_TRUE(Until([] { return Has(Get("/metrics").text, "zelgate_devices_up{site=\"north\"} 1\n"); }))
        << gate->Errors();
  }
  static void TearDownTestSuite() {
    delete gate;
    SiteTest::TearDownTestSuite();
  }
  void TearDown() override {}  // the process goes on

  static void PutDevice(const std::string& address, const std::string& name) {
    const std::string id = address + ".0.1";
    std::string token = id;
    std::replace(token.begin(), token.end(), '.', '-');
    Put(zelgate::kDeviceBucket, zelgate::FindingKey(token),
        ToJson(zelgate::DeviceFinding{id, address, name, "4711", false, {}}));
  }

  static inline GateProcess* gate = nullptr;
};

TEST_F(FiguresTest, FiguresAreTold) {
  EXPECT_TRUE(Until([] { return Has(Get("/metrics").text, "zelgate_devices{site=\"north\"} 2\n"); }));
  const Page page = Get("/metrics");
  EXPECT_EQ(page.status, 200);
  EXPECT_TRUE(Has(page.text, "zelgate_nats_up{site=\"north\"} 1\n")) << page.text;
  EXPECT_TRUE(Until([] { return Has(Get("/metrics").text, "zelgate_shards{site=\"north\"} 1024\n"); }));
}

TEST_F(FiguresTest, AProcessThatServesIsHealthy) {
  const Page page = Get("/healthz");
  EXPECT_EQ(page.status, 200);
  EXPECT_TRUE(Has(page.text, "serves ")) << page.text;
}

TEST_F(FiguresTest, ADeviceIsProbed) {
  const Page page = Get("/probe?device=127.0.0.2.0.1");
  EXPECT_EQ(page.status, 200);
  EXPECT_TRUE(Has(page.text, "zelgate_probe_up 1\n")) << page.text;
  EXPECT_TRUE(Has(page.text, R"(name="press \"7\"\n")")) << page.text;
}

TEST_F(FiguresTest, ADeviceThatIsNotThereIsDown) {
  EXPECT_TRUE(Until([] { return Get("/probe?device=127.0.0.3.0.1").status == 200; }));
  EXPECT_TRUE(Has(Get("/probe?device=127.0.0.3.0.1").text, "zelgate_probe_up 0\n"));
}

TEST_F(FiguresTest, ADeviceOfSomebodyElseIsToldSo) {
  EXPECT_EQ(Get("/probe?device=10.0.0.9.0.1").status, 404);
  EXPECT_TRUE(Has(Get("/probe?device=10.0.0.9.0.1").text, "zelgate status shows who does"));
}

TEST_F(FiguresTest, WhatIsNoDeviceIsRefused) {
  EXPECT_EQ(Get("/probe").status, 400);
  EXPECT_EQ(Get("/probe?device=%3Cscript%3E").status, 400);
  EXPECT_FALSE(Has(Get("/probe?device=%3Cscript%3E").text, "<script>"));
}

TEST_F(FiguresTest, AnAddressInUseIsTold) {
  GateProcess second({"run", "--config", WriteSiteConfig("north"), "--http", kAddress});
  EXPECT_EQ(second.Wait(), 1);
  EXPECT_TRUE(Has(second.Errors(), "cannot listen for HTTP at 127.0.0.1:9470: Address already in use;"))
      << second.Errors();
}

// Started here and ended with the object.
class Prometheus {
 public:
  Prometheus() {
    const std::string folder = std::string(std::getenv("ZEL_LAB")) + "/prometheus";
    std::ofstream(folder + ".yml") << "global: {scrape_interval: 1s}\nscrape_configs:\n- job_name: zelgate\n"
                                   << "  static_configs: [{targets: ['" << kAddress << "']}]\n";
    process_ = fork();
    if (process_ != 0) return;
    (void)!freopen((folder + ".log").c_str(), "w", stderr);
    (void)execlp("prometheus", "prometheus", ("--config.file=" + folder + ".yml").c_str(),
                 ("--storage.tsdb.path=" + folder).c_str(), "--web.listen-address=127.0.0.1:9090", nullptr);
    _exit(95);
  }
  ~Prometheus() {
    (void)kill(process_, SIGKILL);
    (void)waitpid(process_, nullptr, 0);
  }
  Prometheus(const Prometheus&) = delete;
  Prometheus& operator=(const Prometheus&) = delete;

 private:
  pid_t process_;
};

TEST_F(FiguresTest, PrometheusReadsThem) {
  const Prometheus prometheus;
  const auto answer = [] { return Get("/api/v1/query?query=zelgate_devices_up", "127.0.0.1:9090").text; };
  EXPECT_TRUE(Until([&] { return Has(answer(), "\"site\":\"north\"") && Has(answer(), ",\"1\"]"); }))
      << answer();
}

// Last, because the server goes.
TEST_F(FiguresTest, WithoutNatsTheProcessIsNotHealthy) {
  servers->Kill("north");
  EXPECT_TRUE(Until([] { return Get("/healthz").status == 503; }));
  EXPECT_TRUE(Has(Get("/healthz").text, "no connection to NATS")) << Get("/healthz").text;
  EXPECT_EQ(Get("/metrics").status, 200);
  servers->Start("north");
  EXPECT_TRUE(Until([] { return Get("/healthz").status == 200; })) << gate->Errors();
}

}  // namespace
}  // namespace gatelab
