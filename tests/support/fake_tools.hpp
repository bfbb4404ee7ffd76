// Shell tools replaced by scripts, which tell how they were called.
//
//   FakeTools tools;
//   tools.add("ping", "echo '1 received'");
//   ...
//   EXPECT_THAT(tools.calls("ping"), ElementsAre("[-c1][-w3][10.0.0.1]"));
#ifndef KESTRO_TESTS_FAKE_TOOLS_HPP
#define KESTRO_TESTS_FAKE_TOOLS_HPP

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/temp_dir.hpp"

namespace kestro::test {

// A directory of scripts in front of PATH.
class FakeTools {
 public:
  FakeTools() : saved_path_(getenv("PATH")) {
    setenv("PATH", (directory_.path().string() + ":" + saved_path_).c_str(), 1);
  }
  FakeTools(const FakeTools&) = delete;
  FakeTools& operator=(const FakeTools&) = delete;
  ~FakeTools() { setenv("PATH", saved_path_.c_str(), 1); }

  // A tool that runs the lines of shell script.
  void add(const std::string& tool, const std::string& script) {
    // One write a call: the tools of a pipeline run side by side.
    const auto record = "call=$(printf '[%s]' \"$@\"); printf '%s\\n' \"$call\" >> '" + calls_file(tool) + "'\n";
    const auto path = directory_.write(tool, "#!/bin/sh\n" + record + script + "\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  }

  // The arguments of each call, one by one in brackets.
  [[nodiscard]] std::vector<std::string> calls(const std::string& tool) const {
    std::vector<std::string> lines;
    std::ifstream file(calls_file(tool));
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }

  [[nodiscard]] const TempDir& directory() const { return directory_; }

 private:
  [[nodiscard]] std::string calls_file(const std::string& tool) const { return directory_.file(tool + ".calls"); }

  TempDir directory_;
  std::string saved_path_;
};

}  // namespace kestro::test

#endif
