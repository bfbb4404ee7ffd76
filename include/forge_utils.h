/*
 * forge_utils.h - what the library calls of the closed helper library libforge_utils.so.
 *
 * Both functions are weak references. A program that links the helper library, or any library that keeps this contract,
 * gets kestro_jrpc_pull_socket_run_encrypted; without one everything else works, and both are null. Weak references do
 * not make a linker keep a library: where it drops unneeded ones, link it with --no-as-needed.
 */
#ifndef FORGE_UTILS_H
#define FORGE_UTILS_H

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/*
 * Deciphers a text. Returns a new text, to be released with kestro_free_forge_string: the plain text, or a message that
 * begins with "ERROR".
 */
__attribute__((weak)) char* ksto_decrypt_str(const char* enciphered);

/* Releases what ksto_decrypt_str returned. */
__attribute__((weak)) void kestro_free_forge_string(char* text);

KESTRO_END_DECLS

#endif
