#ifndef KESTRO_EXAMPLES_HANDLER_HPP
#define KESTRO_EXAMPLES_HANDLER_HPP

#include <jansson.h>

#include <cstdint>

// The handler of "oec.Provision"; what it reads and answers is told in handler.cpp.
int32_t provision(json_t* params, json_t** result, json_t** err_data);

#endif
