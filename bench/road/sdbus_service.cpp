// The same small answer by a service on sd-bus. Usage: sdbus_service ADDRESS

#include <systemd/sd-bus.h>

#include <cstdint>

namespace {

int get(sd_bus_message* call, void* /*userdata*/, sd_bus_error* /*error*/) {
  const char* port = nullptr;
  if (const int failed = sd_bus_message_read(call, "s", &port); failed < 0) return failed;
  return sd_bus_reply_method_return(call, "sbsiaids", port, 1, "up", 1000, 2, 1, 2000, 12.5,
                                    "uplink of building \"7\"");
}

const sd_bus_vtable methods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Get", "s", "sbsiaids", get, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

}  // namespace

int main(int argc, char** argv) {
  sd_bus* bus = nullptr;
  if (argc < 2 || sd_bus_new(&bus) < 0) return 2;
  if (sd_bus_set_address(bus, argv[1]) < 0 || sd_bus_set_bus_client(bus, 1) < 0 || sd_bus_start(bus) < 0) return 1;
  if (sd_bus_add_object_vtable(bus, nullptr, "/ports", "test.Ports", methods, nullptr) < 0) return 1;
  if (sd_bus_request_name(bus, "test.Ports", 0) < 0) return 1;
  for (;;) {
    const int done = sd_bus_process(bus, nullptr);
    if (done < 0) return 1;
    if (done == 0) sd_bus_wait(bus, UINT64_MAX);
  }
}
