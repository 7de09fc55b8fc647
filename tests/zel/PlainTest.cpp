// What needs no device: codes, version, help, wrong command lines, generated texts.
#include <gtest/gtest.h>

#include "ZelProcess.h"

TEST(PlainTest, ErrorsListsEveryCode) {
  const ZelResult result = RunZel({"errors"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(Lines(result.output).size(), 55U);
  EXPECT_TRUE(Contains(result.output, " 4104  0x1008  ZEL_E_TIMEOUT        recv message timeout\n"));
  EXPECT_TRUE(Contains(result.output, " 8195  0x2003  ZEL_E_RESOURCE       init resource fail\n"));
  EXPECT_TRUE(Contains(result.output, " 8200  0x2008  ZEL_E_MEMORY         no memory\n"));
  EXPECT_TRUE(Contains(result.output, "16389  0x4005                       component name is illegal\n"));
  EXPECT_TRUE(Contains(result.output, "20481  0x5001  LIBZELX_E_CANCELLED  cancelled\n"));
  EXPECT_TRUE(Contains(result.output, "20486  0x5006  LIBZELX_E_DEVICE     the device refused\n"));
}

TEST(PlainTest, ErrorsExplainsOneCodeByNumberOrName) {
  const ZelResult decimal = RunZel({"errors", "4104"});
  EXPECT_EQ(decimal.status, 0);
  EXPECT_TRUE(
      decimal.output.starts_with(" 4104  0x1008  ZEL_E_TIMEOUT        recv message timeout\n"
                                 "  Cause: No answer came in time: "))
      << decimal.output;
  EXPECT_TRUE(Contains(decimal.output, "\n  Cure:  Check the port; allow more time. ")) << decimal.output;
  EXPECT_EQ(RunZel({"errors", "0x1008"}).output, decimal.output);
  EXPECT_EQ(RunZel({"errors", "ZEL_E_TIMEOUT"}).output, decimal.output);
}

TEST(PlainTest, ErrorsExplainsTheCodesOfTheSecondFamily) {
  const ZelResult result = RunZel({"errors", "LIBZELX_E_CANCELLED"});
  EXPECT_TRUE(Contains(result.output, "20481  0x5001  LIBZELX_E_CANCELLED  cancelled\n")) << result.output;
  EXPECT_TRUE(Contains(result.output, "  Cause: A cancel, ")) << result.output;
}

TEST(PlainTest, CausesFitTheirLines) {
  for (const std::string& line : Lines(RunZel({"errors", "5"}).output)) EXPECT_LT(line.size(), 80U) << line;
}

TEST(PlainTest, ErrorsKnowsCodesWithoutText) {
  EXPECT_TRUE(Contains(RunZel({"errors", "77"}).output, "Unknown error code"));
}

TEST(PlainTest, ErrorsWritesObjects) {
  const std::string output = RunZel({"errors", "5", "--json"}).output;
  EXPECT_TRUE(
      output.starts_with("{\"code\":5,\"text\":\"alaready disconnect\",\"name\":\"ZEL_E_DISCONNECTED\","
                         "\"cause\":\"The link is down"))
      << output;
  EXPECT_TRUE(Contains(output, "\"cure\":\"Is the device on, ")) << output;
}

TEST(PlainTest, ErrorsRefusesWhatIsNoNumber) {
  const ZelResult result = RunZel({"errors", "many"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.output, "");
  EXPECT_TRUE(Contains(result.errors, "'many' is no error number"));
}

TEST(PlainTest, VersionOptionTellsThePrograms) {
  std::string output = RunZel({"--version"}).output;
  std::erase(output, '\r');  // the option's text goes out as the system's texts do
  EXPECT_EQ(output, "zel " ZEL_EXPECTED_VERSION "\n");
}

TEST(PlainTest, VersionTellsTheProgramsAndTheLibrarys) {
  EXPECT_EQ(RunZel({"version"}).output, "zel " ZEL_EXPECTED_VERSION ", libzel 0.2.3\n");
  EXPECT_EQ(RunZel({"--json", "version"}).output,
            "{\"zel\":\"" ZEL_EXPECTED_VERSION "\",\"libzel\":\"0.2.3\"}\n");
}

TEST(PlainTest, HelpShowsEveryCommand) {
  const ZelResult result = RunZel({"--help"});
  EXPECT_EQ(result.status, 0);
  for (const char* command : {"scan", "id", "doctor", "errors", "version", "request", "pub", "sub", "listen",
                              "record", "replay", "send", "watch"}) {
    EXPECT_TRUE(Contains(result.output, std::string("\n  ") + command + " ")) << command;
    const ZelResult own = RunZel({command, "--help"});
    EXPECT_EQ(own.status, 0) << command;
    EXPECT_TRUE(Contains(own.output, "zel ")) << command;
  }
}

TEST(PlainTest, HelpHasExamples) {
  for (const char* command :
       {"scan", "id", "errors", "request", "pub", "sub", "listen", "record", "replay", "send", "watch"}) {
    EXPECT_TRUE(Contains(RunZel({command, "--help"}).output, "Examples:")) << command;
  }
}

TEST(PlainTest, HelpFitsEightyColumns) {
  const std::vector<std::vector<std::string>> commands = {
      {},         {"scan"},   {"id"},     {"id", "get"}, {"id", "set"}, {"request"}, {"pub"},    {"sub"},
      {"listen"}, {"record"}, {"replay"}, {"send"},      {"watch"},     {"doctor"},  {"errors"}, {"version"}};
  for (std::vector<std::string> arguments : commands) {
    arguments.push_back("--help");
    for (const std::string& line : Lines(RunZel(arguments).output)) {
      EXPECT_LE(line.size(), 80U) << arguments.front() << ": " << line;
    }
  }
}

TEST(PlainTest, WrongCommandLinesAreUsage) {
  const std::vector<std::vector<std::string>> wrong = {
      {},
      {"dance"},
      {"scan", "--seconds", "soon"},
      {"id", "get"},
      {"id", "get", "1.2.3"},
      {"id", "get", "0x7.0.0.1"},
      {"id", "get", "1.2.3.256"},
      {"id", "set", "1.2.3.4", "1.2.3.4.5.256"},
      {"request", "1.2.3.4.5.6"},
      {"request", "1.2.3.4.5", "-p", "1", "-g", "1", "-o", "1"},
      {"request", "1.2.3.4.5.6", "-p", "65536", "-g", "1", "-o", "1"},
      {"request", "1.2.3.4.5.6", "-p", "1", "-g", "1", "-o", "1", "text", "--hex", "01"},
      {"request", "1.2.3.4.5.6", "-p", "1", "-g", "1", "-o", "1", "--hex", "0"},
      {"pub", "1.2.3.4.5.6"},
      {"sub", "1.2.3.4.5.6"},
      {"sub", "1.2.3.4.5.6", "topic", "--format", "%q"},
      {"listen", "1.2.3.4.5.6", "500"},
      {"send", "1.2.3.4.5.6", "700"},
      {"dance", "--help"},
      {"watch"},
  };
  for (const auto& arguments : wrong) {
    const ZelResult result = RunZel(arguments);
    std::string line = "zel";
    for (const std::string& argument : arguments) line += " " + argument;
    EXPECT_EQ(result.status, 2) << line;
    EXPECT_EQ(result.output, "") << line;
    EXPECT_NE(result.errors, "") << line;
  }
}

TEST(PlainTest, EverythingThatIsMissingIsNamed) {
  EXPECT_TRUE(
      Contains(RunZel({"sub"}).errors, "zel: DEVICE and TOPIC are missing\nzel: see zel sub --help\n"));
  EXPECT_TRUE(Contains(RunZel({"send", "1.2.3.4"}).errors, "zel: PORT and FILE are missing"));
  EXPECT_TRUE(Contains(RunZel({"request", "1.2.3.4"}).errors, "zel: --port is missing"));
  EXPECT_TRUE(
      Contains(RunZel({"id", "set"}).errors, "zel: HOST and ID are missing\nzel: see zel id set --help"));
}

TEST(PlainTest, AWordThatIsNearlyRightIsSuggested) {
  EXPECT_TRUE(Contains(RunZel({"reqest", "--help"}).errors, "no command 'reqest'; did you mean request?"));
  EXPECT_TRUE(Contains(RunZel({"request", "1.2.3.4", "-p", "1", "--ofset", "1"}).errors,
                       "'--ofset' is no option here; did you mean --offset?"));
}

TEST(PlainTest, AWrongCommandLineIsAnObject) {
  const ZelResult result = RunZel({"sub", "--json"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.output,
            "{\"what\":\"DEVICE and TOPIC are missing\",\"advice\":\"see zel sub --help\",\"status\":2}\n");
}

TEST(PlainTest, ManualDescribesEveryCommandAndOption) {
  const ZelResult result = RunZel({"--generate", "man"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(result.output.starts_with(".TH ZEL 1"));
  for (const char* part :
       {".SH SYNOPSIS", "zel request", "zel id set", "\\-\\-interval", "\\fIDEVICE\\fR", ".SH NOTES"}) {
    EXPECT_TRUE(Contains(result.output, part)) << part;
  }
  EXPECT_FALSE(Contains(result.output, "generate"));
}

TEST(PlainTest, EveryShellHasACompletion) {
  for (const char* shell : {"bash", "zsh", "fish"}) {
    const ZelResult result = RunZel({"--generate", shell});
    EXPECT_EQ(result.status, 0) << shell;
    for (const char* part : {"doctor", "summary", "connect-timeout"}) {
      EXPECT_TRUE(Contains(result.output, part)) << shell << " " << part;
    }
    EXPECT_FALSE(Contains(result.output, "generate")) << shell;
  }
}

TEST(PlainTest, WhatCannotBeGeneratedIsUsage) {
  EXPECT_EQ(RunZel({"--generate", "music"}).status, 2);
  EXPECT_EQ(RunZel({"--generate", "page:dance"}).status, 2);
}

TEST(PlainTest, ACommandHasItsPage) {
  const ZelResult result = RunZel({"--generate", "page:scan"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(result.output.starts_with("# zel scan\n")) << result.output;
  EXPECT_TRUE(Contains(result.output, "| `-w,--watch` | Keep looking")) << result.output;
}
