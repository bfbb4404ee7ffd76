// Names of uploaded database files, which may rename the file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "kestro_jrpc_utils.h"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"
#include "support/request.hpp"

namespace kestro::test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* module = "kestro_jrpc_utils";

// Works in the directory of uploads that this build has, and removes what it made there.
class DbFilename : public testing::Test {
 protected:
  const LogLevel level{Verbose};
  const std::string own = "test" + std::to_string(getpid());
  std::string log;
  std::string value;

  DbFilename() { fs::create_directories(KESTRO_UPDATE_DIR); }
  ~DbFilename() override {
    for (const auto& entry : fs::directory_iterator(KESTRO_UPDATE_DIR)) {
      if (entry.path().filename().string().find(own) != std::string::npos) fs::remove_all(entry.path());
    }
  }

  static std::string path(const std::string& name) { return KESTRO_UPDATE_DIR + name; }
  static void upload(const std::string& name, const std::string& contents = "contents") {
    std::ofstream(path(name)) << contents;
  }
  static std::string contents(const std::string& name) {
    std::ostringstream text;
    text << std::ifstream(path(name)).rdbuf();
    return text.str();
  }
  static bool is_there(const std::string& name) { return fs::exists(path(name)); }

  int32_t retrieve(const std::string& name, int32_t length = 300) {
    Request request = Request::of(name);
    int32_t status = 1;
    std::string out(static_cast<size_t>(length) + 1, '?');
    log = stderr_of([&] {
      status = kestro_jrpc_utils_retrieve_input_db_filename(request.params(), request.err_data(), "value", out.data(),
                                                            length);
    });
    EXPECT_EQ(out.back(), '?');
    value = out.c_str();
    return status;
  }
};

TEST_F(DbFilename, LeadingDashesGo) {
  for (const std::string dashes : {"-", "--", "-----"}) {
    SCOPED_TRACE(dashes);
    const std::string name = own + "-cfg.db";
    upload(dashes + name, dashes);
    EXPECT_EQ(retrieve(dashes + name), 0);
    EXPECT_EQ(value, name);
    EXPECT_FALSE(is_there(dashes + name));
    EXPECT_EQ(contents(name), dashes);
    EXPECT_EQ(count_log_lines(log, Info, module, "Removing leading dashes from db file: " + dashes + name + "\n"), 1);
    EXPECT_EQ(
        count_log_lines(log, Info, module, "Renaming db file from " + path(dashes + name) + " to " + path(name) + "\n"),
        1);
    EXPECT_EQ(count_log_lines(log, Debug, module, "Retrieved and validated database filename: " + name + "\n"), 1);
    fs::remove(path(name));
  }
}

TEST_F(DbFilename, OtherNamesLeaveTheFilesAlone) {
  const std::string name = own + "--cfg-.db";
  upload(name);
  EXPECT_EQ(retrieve(name), 0);
  EXPECT_EQ(value, name);
  EXPECT_TRUE(is_there(name));
  EXPECT_THAT(log, AllOf(Not(HasSubstr("Removing")), Not(HasSubstr("Renaming"))));
}

TEST_F(DbFilename, TheFileNeedNotExistWhenItIsNotRenamed) {
  EXPECT_EQ(retrieve(own + ".db"), 0);
}

TEST_F(DbFilename, MissingFileCannotBeRenamed) {
  const std::string name = own + ".db";
  EXPECT_EQ(retrieve("--" + name), -1);
  EXPECT_EQ(value, "");
  EXPECT_FALSE(is_there(name));
  EXPECT_THAT(log, AllOf(HasLog(Error, module, "Unable to rename db file: " + name + ", Error: -1\n"),
                         Not(HasSubstr("Validating")), Not(HasSubstr("Retrieved and"))));
}

TEST_F(DbFilename, RefusedNameStaysShortened) {
  const std::string name = own + " copy.db";
  upload("-" + name);
  EXPECT_EQ(retrieve("-" + name), -34);
  EXPECT_EQ(value, "");
  EXPECT_FALSE(is_there("-" + name));
  EXPECT_EQ(contents(name), "contents");
  EXPECT_THAT(log, Not(HasSubstr("Retrieved and")));
}

TEST_F(DbFilename, FileOfTheShortNameIsReplaced) {
  const std::string name = own + ".db";
  upload(name, "old");
  upload("-" + name, "new");
  EXPECT_EQ(retrieve("-" + name), 0);
  EXPECT_EQ(contents(name), "new");
}

TEST_F(DbFilename, DashesAloneAreNoName) {
  EXPECT_EQ(retrieve("---"), -1);
  EXPECT_EQ(value, "");
  EXPECT_THAT(log, HasLog(Error, module, "Unable to rename db file: , Error: -1\n"));
}

TEST_F(DbFilename, ShortenedNameHasTwoCharactersOrMore) {
  EXPECT_EQ(retrieve("x"), -34);
  EXPECT_EQ(retrieve("x1"), 0);
}

TEST_F(DbFilename, LongestName) {
  const std::string name = own + std::string(254 - own.size(), 'x');
  upload("-" + name);
  EXPECT_EQ(retrieve("-" + name, 256), 0);
  EXPECT_EQ(value, name);
  EXPECT_TRUE(is_there(name));
}

TEST_F(DbFilename, NameThatDoesNotFitLeavesTheFileAlone) {
  const std::string name = "-" + own + ".db";
  upload(name);
  EXPECT_EQ(retrieve(name, static_cast<int32_t>(name.size())), -31);
  EXPECT_TRUE(is_there(name));
  EXPECT_EQ(value, name.substr(0, name.size() - 1));
  EXPECT_EQ(retrieve(name, static_cast<int32_t>(name.size()) + 1), 0);
  EXPECT_FALSE(is_there(name));
}

using DbFilenameDeathTest = DbFilename;

TEST_F(DbFilenameDeathTest, RunningOutOfMemoryEndsTheProcess) {
  const std::string name = "-" + own + ".db";
  const Request request = Request::of(name);
  for (int nth = 1; nth <= 2; ++nth) {
    EXPECT_EXIT(
        {
          const LogLevel off(0);
          char out[100];
          const Fault no_memory("malloc", ENOMEM, nth);
          kestro_jrpc_utils_retrieve_input_db_filename(request.params(), nullptr, "value", out, sizeof(out));
        },
        testing::KilledBySignal(SIGABRT), "^malloc [0-9]+ unsuccessful\n$");
  }
}

}  // namespace
}  // namespace kestro::test
