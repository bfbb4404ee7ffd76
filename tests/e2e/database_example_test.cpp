// examples/database as a real process: what a reader copies from it works.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/cfgdb.hpp"
#include "support/process.hpp"

namespace kestro::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class DatabaseExample : public CfgdbTest {
 protected:
  struct Outcome {
    int status;
    std::string out;
    std::string err;
  };
  static Outcome run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), std::string(KESTRO_EXAMPLES_DIR) + "/database");
    Process process(arguments);
    const int status = process.wait();
    return {status, process.out(), process.err()};
  }
};

TEST_F(DatabaseExample, StoresAndPrintsAliases) {
  const auto outcome = run({"c1-1=lobby", "c1-2=", "d1=roof = top"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "c1-1: lobby\nc1-2: \nd1: roof = top\n");
  EXPECT_EQ(run({"c1-1=hall"}).out, "c1-1: hall\n");
  EXPECT_EQ(Database(path_).number("SELECT count(*) FROM port_alias"), 3);
}

TEST_F(DatabaseExample, QuotesAreOrdinaryCharacters) {
  const auto outcome = run({"c1-1=Tom's", "c1-2='); DROP TABLE port_alias; --", "o'c=''"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "c1-1: Tom's\nc1-2: '); DROP TABLE port_alias; --\no'c: ''\n");
}

TEST_F(DatabaseExample, OneFailureStoresNone) {
  ASSERT_EQ(run({"c1-1=before"}).status, 0);
  const auto outcome = run({"c1-1=after", "c1-2=" + std::string(300, 'x')});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.out, IsEmpty());
  EXPECT_THAT(outcome.err, HasSubstr("Data was about to be written to unallocated memory"));
  EXPECT_EQ(Database(path_).value("SELECT group_concat(alias) FROM port_alias"), "before");
}

TEST_F(DatabaseExample, MissingDatabaseIsNotCreated) {
  remove();
  const auto outcome = run({"c1-1=lobby"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("Failed to open a database connection to file <" + path_ + ">\n"));
  EXPECT_THAT(outcome.err, HasSubstr("System access error"));
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(DatabaseExample, ArgumentsThatAreNoAssignmentsAreRefused) {
  EXPECT_EQ(run({}).status, 2);
  EXPECT_EQ(run({"c1-1=lobby", "c1-2"}).status, 2);
}

}  // namespace
}  // namespace kestro::test
