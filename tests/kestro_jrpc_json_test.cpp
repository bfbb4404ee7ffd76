// Encoding of JSON values while memory runs out.

#include "kestro_jrpc/json.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "core/owned.hpp"
#include "support/faults.hpp"

namespace kestro::test {
namespace {

// Whose text is longer than the first buffers, so that it grows a few times.
Json long_value() {
  Json value(json_object());
  for (int i = 0; i < 100; ++i) {
    json_object_set_new(value.get(), ("member" + std::to_string(i)).c_str(), json_string("text"));
  }
  return value;
}

// The JSON library goes on after a failure; a text with a hole in it must not leave.
TEST(EncodeJson, GivesAllOrNothingWhereverMemoryRunsOut) {
  const Json value = long_value();
  const Text whole(json_dumps(value.get(), JSON_COMPACT));
  int failures = 0;
  for (bool fired = true; fired; ++failures) {
    const Fault no_memory("realloc", ENOMEM, failures + 1);
    const Text text = encode_json(value.get(), JSON_COMPACT);
    fired = no_memory.fired();
    if (fired) {
      EXPECT_EQ(text, nullptr) << "reallocation " << failures + 1;
    } else {
      ASSERT_NE(text, nullptr);
      EXPECT_STREQ(text.get(), whole.get());
    }
  }
  EXPECT_GT(failures, 3);
}

}  // namespace
}  // namespace kestro::test
