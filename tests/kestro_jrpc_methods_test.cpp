// Methods are found in tables of any length, by names of any length.
#include "kestro_jrpc/methods.hpp"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "core/owned.hpp"

namespace kestro::test {
namespace {

int32_t handle(json_t* /*params*/, json_t** /*result*/, json_t** /*err_data*/) {
  return 0;
}

// Rows of those names, or "m0", "m1" and so on, and the end.
class Table {
 public:
  explicit Table(size_t size) : Table(numbered(size)) {}
  explicit Table(std::vector<std::string> names) : names_(std::move(names)) {
    for (const auto& name : names_) rows_.push_back({name.c_str(), handle});
    rows_.push_back({nullptr, nullptr});
  }

  kestro_jrpc_mapping_t& operator[](size_t row) { return rows_[row]; }
  // The number of the row, or -1.
  [[nodiscard]] long find(const std::string& method) const {
    const auto* const row = find_method(rows_.data(), method.c_str());
    return row != nullptr ? row - rows_.data() : -1;
  }

 private:
  static std::vector<std::string> numbered(size_t size) {
    std::vector<std::string> names;
    for (size_t i = 0; i < size; ++i) names.push_back("m" + std::to_string(i));
    return names;
  }

  std::vector<std::string> names_;
  std::vector<kestro_jrpc_mapping_t> rows_;
};

TEST(KestroJrpcMethods, EveryRowIsFoundOnceAndAgain) {
  for (const size_t size : {0U, 1U, 7U, 8U, 9U, 100U, 1000U}) {
    const Table table(size);
    for (int again = 0; again < 3; ++again) {
      for (size_t row = 0; row < size; ++row) EXPECT_EQ(table.find("m" + std::to_string(row)), static_cast<long>(row));
      EXPECT_EQ(table.find("m" + std::to_string(size)), -1);
      EXPECT_EQ(table.find(""), -1);
    }
  }
}

TEST(KestroJrpcMethods, NamesAreToldApartWhereverTheyDiffer) {
  for (size_t length = 1; length <= 40; ++length) {
    std::vector<std::string> names;
    for (size_t place = 0; place < length; ++place) {
      names.emplace_back(length, 'a');
      names.back()[place] = 'b';
    }
    const Table table(names);
    for (size_t row = 0; row < length; ++row) EXPECT_EQ(table.find(names[row]), static_cast<long>(row)) << names[row];
    EXPECT_EQ(table.find(std::string(length, 'a')), -1);
  }
}

TEST(KestroJrpcMethods, NamesAreToldApartByTheirLengths) {
  std::vector<std::string> names;
  for (size_t length = 40; length > 0; --length) names.emplace_back(length, 'a');
  const Table table(names);
  for (size_t row = 0; row < names.size(); ++row) EXPECT_EQ(table.find(names[row]), static_cast<long>(row));
  EXPECT_EQ(table.find(""), -1);
  EXPECT_EQ(table.find(std::string(41, 'a')), -1);
}

TEST(KestroJrpcMethods, NamesAreOfAnyBytes) {
  std::vector<std::string> names;
  for (int byte = 1; byte < 256; ++byte) names.emplace_back(20, static_cast<char>(byte));
  const Table table(names);
  for (size_t row = 0; row < names.size(); ++row) EXPECT_EQ(table.find(names[row]), static_cast<long>(row));
}

// Where memory is watched, not even a byte behind a name is read.
TEST(KestroJrpcMethods, NamesMayEndWithTheirMemory) {
  for (size_t length = 0; length < 40; ++length) {
    const std::string name(length, 'a');
    const Text copy(strdup(name.c_str()));
    const kestro_jrpc_mapping_t rows[] = {{copy.get(), handle}, {nullptr, nullptr}};
    EXPECT_EQ(find_method(rows, name.c_str()), &rows[0]) << length;
    EXPECT_EQ(find_method(rows, "b"), nullptr) << length;
  }
}

TEST(KestroJrpcMethods, NamesAreFoundWhateverStandsBehindThem) {
  std::array<char, 64> text{};
  for (size_t length = 0; length < 40; ++length) {
    text.fill('x');
    const std::string name(length, 'a');
    memcpy(text.data(), name.c_str(), length + 1);
    const kestro_jrpc_mapping_t rows[] = {{text.data(), handle}, {nullptr, nullptr}};
    EXPECT_EQ(find_method(rows, name.c_str()), &rows[0]) << length;
    EXPECT_EQ(find_method(rows, (name + "x").c_str()), nullptr) << length;
  }
}

TEST(KestroJrpcMethods, NothingIsReadOfThePageBehindAName) {
  const auto page = static_cast<size_t>(getpagesize());
  void* const pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(pages, MAP_FAILED);
  char* const end = static_cast<char*>(pages) + page;
  ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
  for (size_t length = 0; length < 40; ++length) {
    const std::string name(length, 'a');
    char* const last = end - length - 1;
    memcpy(last, name.c_str(), length + 1);
    const kestro_jrpc_mapping_t rows[] = {{last, handle}, {nullptr, nullptr}};
    EXPECT_EQ(find_method(rows, name.c_str()), &rows[0]) << length;
    EXPECT_EQ(find_method(rows, "b"), nullptr) << length;
    EXPECT_EQ(find_method(rows, last), &rows[0]) << length;
  }
  munmap(pages, 2 * page);
}

TEST(KestroJrpcMethods, TablesDoNotMeetEachOther) {
  const Table one(50);
  Table other(50);
  std::swap(other[20], other[40]);
  for (int again = 0; again < 3; ++again) {
    EXPECT_EQ(one.find("m40"), 40);
    EXPECT_EQ(other.find("m40"), 20);
  }
}

TEST(KestroJrpcMethods, FirstOfTwoRowsCountsAlsoWhenItCameLater) {
  Table table(50);
  ASSERT_EQ(table.find("m40"), 40);
  for (const size_t row : {30U, 9U, 8U, 7U, 0U}) {
    const std::string copy = "m40";
    const auto before = table[row];
    table[row].method = copy.c_str();
    EXPECT_EQ(table.find("m40"), static_cast<long>(row));
    table[row] = before;
    EXPECT_EQ(table.find("m40"), 40);
  }
}

TEST(KestroJrpcMethods, RowThatHasGoneIsNotFound) {
  for (const size_t row : {9U, 20U, 40U}) {
    Table table(50);
    ASSERT_EQ(table.find("m40"), 40);
    table[row].methodHandler = nullptr;  // the name of the last row does not count
    EXPECT_EQ(table.find("m40"), -1);
  }
}

TEST(KestroJrpcMethods, NothingBehindTheEndIsLookedAt) {
  Table table(50);
  ASSERT_EQ(table.find("m40"), 40);
  for (size_t row = 49; row >= 10; --row) {
    table[row] = {nullptr, nullptr};
    EXPECT_EQ(table.find("m40"), row > 40 ? 40 : -1);
  }
}

TEST(KestroJrpcMethods, RowsMayChangePlaces) {
  Table table(50);
  ASSERT_EQ(table.find("m40"), 40);
  std::swap(table[40], table[10]);
  EXPECT_EQ(table.find("m40"), 10);
  EXPECT_EQ(table.find("m10"), 40);
  std::swap(table[40], table[10]);
  EXPECT_EQ(table.find("m40"), 40);
  EXPECT_EQ(table.find("m10"), 10);
}

// The names before are others, though they stand as far apart as ever.
TEST(KestroJrpcMethods, FirstOfTwoRowsCountsWhateverElseChanged) {
  std::array<char[24], 50> names{};
  std::vector<kestro_jrpc_mapping_t> rows;
  for (size_t i = 0; i < names.size(); ++i) {
    snprintf(names[i], sizeof names[i], "m%zu", i);
    rows.push_back({names[i], handle});
  }
  rows.push_back({nullptr, nullptr});
  ASSERT_EQ(find_method(rows.data(), "m40"), &rows[40]);
  rows[10].method = names[40];
  rows[39].method = names[9];
  EXPECT_EQ(find_method(rows.data(), "m40"), &rows[10]);
}

TEST(KestroJrpcMethods, ThreadsFindTheSame) {
  const Table table(500);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&table] {
      for (size_t row = 0; row < 500; ++row) EXPECT_EQ(table.find("m" + std::to_string(row)), static_cast<long>(row));
    });
  }
  for (auto& thread : threads) thread.join();
}

}  // namespace
}  // namespace kestro::test
