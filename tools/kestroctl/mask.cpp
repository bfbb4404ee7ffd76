#include "kestroctl/mask.hpp"

#include <algorithm>
#include <cctype>
#include <string>

namespace kestro::ctl {

namespace {

// As they stand in a name once capitals and everything between the words are gone.
constexpr std::string_view secret_words[] = {
    "password", "passwd", "passphrase", "passcode",   "pwd",    "credential", "secret",      "community",
    "token",    "psk",    "sharedkey",  "privatekey", "apikey", "authkey",    "cryptionkey",
};

}  // namespace

bool names_secret(std::string_view member) {
  std::string letters;
  for (const char c : member) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0) letters += static_cast<char>(std::tolower(byte));
  }
  return std::any_of(std::begin(secret_words), std::end(secret_words),
                     [&](std::string_view word) { return letters.find(word) != std::string::npos; });
}

void mask_secrets(json_t* value) {
  const char* name = nullptr;
  json_t* member = nullptr;
  json_object_foreach(value, name, member) {
    if (names_secret(name)) {
      json_object_set_new(value, name, json_string(masked));
    } else {
      mask_secrets(member);
    }
  }
  for (size_t i = 0; i < json_array_size(value); ++i) mask_secrets(json_array_get(value, i));
}

}  // namespace kestro::ctl
