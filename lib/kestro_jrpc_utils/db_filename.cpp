// The name of an uploaded database file. One that begins with a dash would be taken for an option by the tools that
// handle the file later: it is renamed where it was uploaded.
#include <cstdio>
#include <cstring>

#include "core/owned.hpp"
#include "kestro_jrpc_utils.h"
#include "kestro_jrpc_utils/fields.hpp"
#include "kestro_jrpc_utils/site.hpp"
#include "kestro_malloc.h"
#include "kestro_validation.h"

using namespace kestro;
using namespace kestro::jrpc_utils;

namespace {

Text uploaded(const char* name) noexcept {
  const size_t size = sizeof(KESTRO_UPDATE_DIR) + strlen(name);
  Text path(static_cast<char*>(omalloc(size)));
  snprintf(path.get(), size, "%s%s", KESTRO_UPDATE_DIR, name);
  return path;
}

int32_t remove_leading_dashes(char* name) noexcept {
  here().log(Info, "Removing leading dashes from db file: %s\n", name);
  const Text from = uploaded(name);
  const char* const rest = name + strspn(name, "-");
  memmove(name, rest, strlen(rest) + 1);
  const Text to = uploaded(name);

  here().log(Info, "Renaming db file from %s to %s\n", from.get(), to.get());
  const int result = rename(from.get(), to.get());
  if (result == 0) return status::ok;
  return here().fail(Error, status::general_error, "Unable to rename db file: %s, Error: %i\n", name, result);
}

// A name that is refused after all leaves the file renamed.
int32_t accept(char* name) noexcept {
  if (name[0] == '-') {
    if (const auto result = remove_leading_dashes(name); result != status::ok) return result;
  }
  return as_status(validate_db_filename(name));
}

}  // namespace

int32_t kestro_jrpc_utils_retrieve_input_db_filename(const json_t* params, json_t** err_data, const char* param_name,
                                                     char* out, const int32_t length) noexcept {
  const int32_t result = extract("Retrieving database filename...\n", {params, err_data, param_name}, {out, length});
  if (result != status::ok) return result;
  return conclude(accept(out), "Retrieved and validated database filename: %s\n", {out, length});
}
