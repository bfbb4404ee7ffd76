#include "forge_stand_in.h"

#include <pthread.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include "forge_utils.h"

/* A text lies inside a block of its own, not at its start: an ordinary free() of it does not go unnoticed. */
struct block {
  struct block* next;
  char text[];
};

static const char mark[] = "FAKE:";
static const char refusal[] = "ERROR: not a text of the stand-in's cipher";

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static struct block* outstanding;
static struct forge_stand_in_counts books;

static char rotated(char c) {
  if (c >= 'a' && c <= 'z') return (char)('a' + (c - 'a' + 13) % 26);
  if (c >= 'A' && c <= 'Z') return (char)('A' + (c - 'A' + 13) % 26);
  return c;
}

static char* hand_out(const char* text, char (*changed)(char)) {
  const size_t length = strlen(text);
  struct block* const block = calloc(1, sizeof *block + length + 1);
  if (block == NULL) return NULL;
  for (size_t i = 0; i < length; ++i) block->text[i] = changed != NULL ? changed(text[i]) : text[i];

  pthread_mutex_lock(&lock);
  block->next = outstanding;
  outstanding = block;
  ++books.handed_out;
  pthread_mutex_unlock(&lock);
  return block->text;
}

static struct block* take_back(const char* text) {
  for (struct block** at = &outstanding; *at != NULL; at = &(*at)->next) {
    struct block* const block = *at;
    if (block->text != text) continue;
    *at = block->next;
    return block;
  }
  return NULL;
}

char* ksto_decrypt_str(const char* enciphered) {
  const size_t head = strlen(mark);
  if (enciphered == NULL || strncmp(enciphered, mark, head) != 0) return hand_out(refusal, NULL);
  return hand_out(enciphered + head, rotated);
}

void kestro_free_forge_string(char* text) {
  pthread_mutex_lock(&lock);
  struct block* const block = take_back(text);
  if (block != NULL) {
    ++books.given_back;
  } else {
    ++books.strangers;
  }
  pthread_mutex_unlock(&lock);
  free(block);
}

struct forge_stand_in_counts forge_stand_in_books(void) {
  pthread_mutex_lock(&lock);
  const struct forge_stand_in_counts copy = books;
  pthread_mutex_unlock(&lock);
  return copy;
}
