#pragma once
// A program folder with its log and systems list, an application and an engine on it.

#include <gtest/gtest.h>

#include "engine/engine.h"
#include "settings/application.h"
#include "tests/test_support.h"

namespace qb::test {

inline std::filesystem::path Sample(std::string_view name) {
  return std::filesystem::path(QB_SAMPLES_DIR) / name;
}

class EngineTest : public ::testing::Test {
 protected:
  EngineTest() : app_(home_.path(), ui_, PinnedTime), engine_(app_) {
    std::filesystem::create_directory(home_ / "log");
    std::filesystem::create_directory(home_ / "out");
    WriteFile(home_ / "qbsys.txt",
              "System,Row,Start,Length,End\r\nDefault - By Filename,0,1,1,.\r\n"
              "Ledgerline Financials,1,1,8, \r\n");
    EXPECT_TRUE(app_.ResetForm());
  }

  std::string Log() const { return ReadFile(home_ / "log" / "qbuia.log"); }
  // Writes `text` as an RDF in the home folder and returns its path.
  std::filesystem::path Rdf(std::string_view text, std::string_view name = "t.rdf") {
    WriteFile(home_ / name, text);
    return home_ / name;
  }

  TempDir home_;
  RecordingUI ui_;
  Application app_;
  Engine engine_;
};

}  // namespace qb::test
