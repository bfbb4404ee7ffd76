// A second process: the test's own program, run again to play a role. It shares nothing with the test but what the
// system itself shares between processes.
//
//   int hold(const std::vector<std::string>& args) { ...; std::cout << "held" << std::endl; ... }
//   int main(int argc, char** argv) { return kestro::test::main_with_roles(argc, argv, {{"hold", hold}}); }
//
//   Child child("hold", {path});
//   EXPECT_EQ(child.hear(), "held");
#ifndef KESTRO_TESTS_CHILD_HPP
#define KESTRO_TESTS_CHILD_HPP

#include <sys/types.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestro::test {

using Role = int (*)(const std::vector<std::string>& args);

// Plays the role that a Child asked for; runs the tests otherwise.
int main_with_roles(int argc, char** argv, std::initializer_list<std::pair<std::string_view, Role>> roles);

class Child {
 public:
  explicit Child(const std::string& role, const std::vector<std::string>& args = {});
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  // Kills the child if nobody has waited for it.
  ~Child();

  // Writes a line to the child's standard input.
  void say(std::string_view line) const;
  // The next line of the child's standard output without its newline; empty when there is no more.
  std::string hear() const;
  // Waits for the end: the exit code, or the negative number of the signal that ended the child.
  int wait();

 private:
  pid_t pid_ = -1;
  int to_child_ = -1;
  int from_child_ = -1;
};

}  // namespace kestro::test

#endif
