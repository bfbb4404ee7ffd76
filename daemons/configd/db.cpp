// Backups of the configuration, in the update directory.
#include <filesystem>
#include <string>

#include "common/log.hpp"
#include "configd/backup.hpp"
#include "configd/handlers.hpp"

namespace kestro::configd {

namespace {

// A name may begin with any character: what could lead out of the directory is refused.
std::string path_of(const Context& context, const std::string& name) {
  if (name.find('/') != std::string::npos || name == "..") {
    throw Failure(status::validation_failed, "db_filename: a name without a directory is expected");
  }
  return (std::filesystem::path(context.update_dir) / name).string();
}

}  // namespace

Json db_create_backup(Context& context, const Request& request) {
  const std::string name = request.new_filename("db_filename");
  const std::string path = path_of(context, name);
  const int64_t bytes = create_backup(context.database, path);
  daemons::log_info("backup of the configuration written to " + path + ", " + std::to_string(bytes) + " bytes");
  return Json(json_pack("{s:s,s:I}", "db_filename", name.c_str(), "bytes", static_cast<json_int_t>(bytes)));
}

Json db_apply_backup(Context& context, const Request& request) {
  const std::string path = path_of(context, request.uploaded_filename("db_filename"));
  try {
    apply_backup(context.database, path);
  } catch (const Failure& failure) {
    daemons::log_warning("backup " + path + " not applied: " + failure.what());
    throw;
  }
  const int32_t switches = context.database.number(0, "SELECT count(*) FROM edge_switch WHERE number <= 512");
  daemons::log_info("configuration replaced by the backup " + path + ", " + std::to_string(switches) +
                    " edge switches");
  context.applier.forget_all();
  context.applier.repair();
  return Json(json_pack("{s:i}", "oecs", switches));
}

}  // namespace kestro::configd
