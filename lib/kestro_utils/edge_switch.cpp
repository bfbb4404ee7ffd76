#include <cstdio>
#include <cstring>
#include <ctime>

#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_data.h"
#include "kestro_utils.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_utils");
constexpr uint64_t recently = 120;  // seconds

// An alias fills eight characters, and so does an identifier with any number in use.
constexpr size_t short_name_size = sizeof(kestro_data_oec::alias);

// C callers may have put any number there, which the enumeration of this language must not be read with.
uint32_t model_of(const kestro_data_oec& oec) noexcept {
  uint32_t number = 0;
  static_assert(sizeof number == sizeof oec.model);
  memcpy(&number, &oec.model, sizeof number);
  return number;
}

const char* model_text(const kestro_data_oec& oec) noexcept {
  constexpr uint32_t unknown = KESTRO_DATA_OEC_MODEL_UNKNOWN;
  const uint32_t model = model_of(oec);
  return kestro_data_oec_model_name_enum_str[model < KESTRO_DATA_OEC_MODEL_MAX_ENUM_VAL ? model : unknown];
}

void print_id(const kestro_data_oec& oec, char* out, size_t size) noexcept {
  snprintf(out, size, "c%d", oec.oec_id);
}

void print_alias_or_id(const kestro_data_oec& oec, char* out, size_t size) noexcept {
  if (oec.alias[0] != '\0') {
    snprintf(out, size, "%s", oec.alias);
  } else {
    print_id(oec, out, size);
  }
}

}  // namespace

int32_t kestro_form_oec_name(const kestro_data_oec* oec, char* name, size_t sz) noexcept {
  if (kestro_check_for_null(2, oec, name) != status::ok) return status::null_argument;
  print_alias_or_id(*oec, name, sz);
  return status::ok;
}

int32_t kestro_print_oec(const kestro_data_oec* oec, const char* msg) noexcept {
  if (kestro_check_for_null(2, oec, msg) != status::ok) return status::null_argument;
  here().log_unchecked(Info, "%s:\noec_id: c%d\nmodel: %s\n mac: %s\n ip: %s\n\n", msg, oec->oec_id, model_text(*oec),
                       oec->switch_mac_address, oec->ip_addr);
  return status::ok;
}

bool kestro_oec_is_online(const kestro_data_oec* oec) noexcept {
  return oec->onu_id > 0;
}

bool kestro_esw_is_recently_online(const kestro_data_oec* esw, int64_t now) noexcept {
  const uint64_t age = static_cast<uint64_t>(now) - static_cast<uint64_t>(esw->offline_online_transition_time);
  return kestro_oec_is_online(esw) && age > 0 && age < recently;
}

bool kestro_esw_show_recently_online_warning(const kestro_data_oec* esw) noexcept {
  return model_of(*esw) == KESTRO_DATA_OEC_MODEL_GENERIC && kestro_esw_is_recently_online(esw, time(nullptr));
}

char* kestro_esw_str(const kestro_data_oec* esw) noexcept {
  static thread_local char text[256];
  const int written = snprintf(text, sizeof text, "{c%d; %s; %s; ip %s; emac %s; omac %s}", esw->oec_id, esw->alias,
                               esw->description, esw->ip_addr, esw->switch_mac_address, esw->mac_address);
  if (s_overflow_check(written, sizeof text)) here().log(Error, "overflowed esw str\n");
  return text;
}

char* kestro_esw_id_str(const kestro_data_oec* esw) noexcept {
  static thread_local char text[short_name_size];
  print_id(*esw, text, sizeof text);
  return text;
}

char* kestro_esw_id_or_alias(const kestro_data_oec* esw) noexcept {
  static thread_local char text[short_name_size];
  print_alias_or_id(*esw, text, sizeof text);
  return text;
}
