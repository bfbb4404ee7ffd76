/*
 * forge_stand_in.h - a stand-in for the closed helper library, whose contract forge_utils.h tells.
 *
 * Its cipher is none, and looks it: "FAKE:" and the plain text with the letters A-Z and a-z rotated by 13. Any other text
 * deciphers to a message that begins with "ERROR".
 */
#ifndef KESTRO_TESTS_FORGE_STAND_IN_H
#define KESTRO_TESTS_FORGE_STAND_IN_H

#ifdef __cplusplus
extern "C" {
#endif

/* What became of the texts that ksto_decrypt_str handed out. */
struct forge_stand_in_counts {
  int handed_out;
  int given_back; /* by kestro_free_forge_string, each once */
  int strangers;  /* what kestro_free_forge_string was given beside them */
};

struct forge_stand_in_counts forge_stand_in_books(void);

#ifdef __cplusplus
}
#endif

#endif
