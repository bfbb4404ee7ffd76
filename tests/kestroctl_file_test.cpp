// Files are replaced in one step, and keep what they had beside their contents.

#include "kestroctl/file.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "kestroctl/exit_status.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using ctl::read_file_or_nothing;
using ctl::replace_file;
using testing::HasSubstr;

size_t files_in(const TempDir& dir) {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(dir.path()), {}));
}

struct stat status_of(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status;
}

std::string message_of(const std::function<void()>& action) {
  try {
    action();
  } catch (const ctl::Failure& failure) {
    EXPECT_EQ(failure.status(), ctl::Exit::Refused);
    return failure.what();
  }
  return "";
}

TEST(ReplaceFile, HoldsTheNewContents) {
  const TempDir dir;
  const auto path = dir.write("f", "old");
  replace_file(path, std::string(100'000, 'n'));
  EXPECT_EQ(read_file_or_nothing(path), std::string(100'000, 'n'));
  EXPECT_EQ(files_in(dir), 1U);
}

TEST(ReplaceFile, TheOldFileIsLeftToThoseWhoHaveItOpen) {
  const TempDir dir;
  const auto path = dir.write("f", "old");
  std::ifstream open_before(path);
  replace_file(path, "new");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(open_before), {}), "old");
}

TEST(ReplaceFile, KeepsModeAndOwner) {
  const TempDir dir;
  const auto path = dir.write("f", "old");
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  const bool other_owner = chown(path.c_str(), 1234, 4321) == 0;
  replace_file(path, "new");
  EXPECT_EQ(status_of(path).st_mode & 07777, 0640U);
  if (other_owner) {
    EXPECT_EQ(status_of(path).st_uid, 1234U);
    EXPECT_EQ(status_of(path).st_gid, 4321U);
  }
}

TEST(ReplaceFile, ANewFileIsForEverybodyToRead) {
  const TempDir dir;
  replace_file(dir.file("f"), "new");
  EXPECT_EQ(status_of(dir.file("f")).st_mode & 07777, 0644U);
  EXPECT_EQ(read_file_or_nothing(dir.file("f")), "new");
}

TEST(ReplaceFile, ALinkStays) {
  const TempDir dir;
  const auto path = dir.write("f", "old");
  ASSERT_EQ(symlink(path.c_str(), dir.file("link").c_str()), 0);
  replace_file(dir.file("link"), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(dir.file("link")));
  EXPECT_EQ(read_file_or_nothing(path), "new");
}

TEST(ReplaceFile, WithoutADirectoryNothingIsWritten) {
  const TempDir dir;
  EXPECT_THAT(message_of([&] { replace_file(dir.file("no/f"), "new"); }), HasSubstr("No such file or directory"));
}

TEST(ReplaceFile, WhereItCannotTakeThePlaceNothingIsLeftBehind) {
  const TempDir dir;
  std::filesystem::create_directories(dir.file("f/inside"));
  EXPECT_THAT(message_of([&] { replace_file(dir.file("f"), "new"); }), HasSubstr("cannot replace"));
  EXPECT_EQ(files_in(dir), 1U);
}

TEST(ReadFile, AbsenceIsNoFailure) {
  const TempDir dir;
  EXPECT_EQ(read_file_or_nothing(dir.file("f")), "");
}

TEST(ReadFile, WhatCannotBeReadIs) {
  const TempDir dir;
  EXPECT_THAT(message_of([&] { read_file_or_nothing(dir.path()); }), HasSubstr("Is a directory"));
}

}  // namespace
}  // namespace kestro::test
