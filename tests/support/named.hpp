// Names of table-driven tests: INSTANTIATE_TEST_SUITE_P(..., testing::ValuesIn(cases), name_of<Case>), where each case
// has a member `name` of letters and digits.
#ifndef KESTRO_TESTS_NAMED_HPP
#define KESTRO_TESTS_NAMED_HPP

#include <gtest/gtest.h>

#include <string>

namespace kestro::test {

template <class Case>
std::string name_of(const testing::TestParamInfo<Case>& info) {
  return info.param.name;
}

}  // namespace kestro::test

#endif
