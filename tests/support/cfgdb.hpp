// The configuration database of this build. Its path is fixed: tests that use it have the CTest resource lock "cfgdb".
#ifndef KESTRO_TESTS_CFGDB_HPP
#define KESTRO_TESTS_CFGDB_HPP

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "kestro_general.h"
#include "support/database.hpp"

namespace kestro::test {

// A test with an empty configuration database; removed afterwards.
class CfgdbTest : public testing::Test {
 protected:
  void SetUp() override {
    if (path_.starts_with("/data/")) GTEST_SKIP() << "this build has the unit's own configuration database";
    std::filesystem::create_directories(std::filesystem::path(path_).parent_path());
    remove();
    Database(path_).run("PRAGMA user_version = 1");
  }
  void TearDown() override {
    if (!IsSkipped()) remove();
  }

  void remove() const {
    std::filesystem::remove(path_);
    std::filesystem::remove(path_ + "-journal");
  }

  const std::string path_ = KESTRO_CFGDB_FILE;
};

}  // namespace kestro::test

#endif
