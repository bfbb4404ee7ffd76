// How a service describes its methods.
#ifndef KESTRO_TESTS_DESCRIPTION_HPP
#define KESTRO_TESTS_DESCRIPTION_HPP

#include <gtest/gtest.h>
#include <jansson.h>

#include <string>

namespace kestro::test {

// A sentence: a capital or a digit first, a full stop last.
inline void expect_sentence(const json_t* of) {
  const char* const name = json_string_value(json_object_get(of, "name"));
  const char* const text = json_string_value(json_object_get(of, "description"));
  ASSERT_NE(text, nullptr) << name;
  const std::string sentence = text;
  ASSERT_GT(sentence.size(), 2U) << name;
  EXPECT_FALSE(sentence.front() >= 'a' && sentence.front() <= 'z') << name << ": " << sentence;
  EXPECT_EQ(sentence.back(), '.') << name << ": " << sentence;
}

// Of every method and every parameter.
inline void expect_sentences(const json_t* description) {
  const json_t* const methods = json_object_get(description, "methods");
  ASSERT_GT(json_array_size(methods), 0U);
  for (size_t i = 0; i < json_array_size(methods); ++i) {
    expect_sentence(json_array_get(methods, i));
    const json_t* const parameters = json_object_get(json_array_get(methods, i), "params");
    for (size_t j = 0; j < json_array_size(parameters); ++j) expect_sentence(json_array_get(parameters, j));
  }
}

}  // namespace kestro::test

#endif
