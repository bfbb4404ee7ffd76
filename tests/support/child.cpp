#include "support/child.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace kestro::test {

namespace {

constexpr std::string_view role_option = "--role=";

struct Pipe {
  Pipe() {
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  }
  int ends[2] = {-1, -1};
};

}  // namespace

int main_with_roles(int argc, char** argv, std::initializer_list<std::pair<std::string_view, Role>> roles) {
  const std::string_view first = argc > 1 ? argv[1] : "";
  for (const auto& [name, role] : roles) {
    if (first.starts_with(role_option) && first.substr(role_option.size()) == name) {
      return role(std::vector<std::string>(argv + 2, argv + argc));
    }
  }
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}

Child::Child(const std::string& role, const std::vector<std::string>& args) {
  const Pipe input;
  const Pipe output;
  to_child_ = input.ends[1];
  from_child_ = output.ends[0];

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input.ends[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output.ends[1], STDOUT_FILENO);

  std::vector<std::string> words = {"child", std::string(role_option) + role};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  const int error = posix_spawn(&pid_, "/proc/self/exe", &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(input.ends[0]);
  close(output.ends[1]);
  if (error != 0) throw std::runtime_error("cannot run a child");
}

Child::~Child() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    wait();
  }
  close(to_child_);
  close(from_child_);
}

void Child::say(std::string_view line) const {
  const std::string text = std::string(line) + "\n";
  if (write(to_child_, text.data(), text.size()) < 0) throw std::runtime_error("the child does not listen");
}

std::string Child::hear() const {
  std::string line;
  char c = 0;
  while (read(from_child_, &c, 1) == 1 && c != '\n') line += c;
  return line;
}

int Child::wait() {
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace kestro::test
