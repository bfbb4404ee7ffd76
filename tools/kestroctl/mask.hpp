// Keeps what must not be read over somebody's shoulder out of what is shown.
#ifndef KESTRO_CTL_MASK_HPP
#define KESTRO_CTL_MASK_HPP

#include <jansson.h>

#include <string_view>

namespace kestro::ctl {

inline constexpr const char* masked = "***";

// Whether a member of this name holds a secret: its name contains password, credential, secret and the like, in any
// spelling: PassWord, pass_word and pass-word, too.
bool names_secret(std::string_view member);

// Replaces the value of every such member, at any depth.
void mask_secrets(json_t* value);

}  // namespace kestro::ctl

#endif
