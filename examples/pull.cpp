// A one-way endpoint for enciphered requests: they are obeyed and never answered.
//
//   pull ADDRESS
//
// The cipher is the helper library's (forge_utils.h): the program links it, the base library finds it. This example links
// a stand-in with a cipher that is none.

#include <jansson.h>
#include <kestro.h>

#include <cstdio>

#include "stop.hpp"

namespace {

// {"text": "..."}
int32_t console_show(json_t* params, json_t** /*result*/, json_t** /*err_data*/) {
  const char* text = nullptr;
  if (json_unpack(params, "{s:s}", "text", &text) != 0) return -35;
  puts(text);
  fflush(stdout);
  return 0;
}

kestro_jrpc_mapping_t methods[] = {{"console.Show", console_show}, {nullptr, nullptr}};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s ADDRESS\n", argv[0]);
    return 2;
  }
  kestro_lsyslog_init("pull");
  stop_on_signals();

  int32_t in = -1;
  if (kestro_jrpc_pull_socket_init(argv[1], &in) != 0) return 1;
  kestro_mq_socket_set_timeout(in, 1000);  // so that the loop gets to look whether it should end
  while (running()) kestro_jrpc_pull_socket_run_encrypted(in, methods);
  kestro_mq_socket_close(in);
  return 0;
}
