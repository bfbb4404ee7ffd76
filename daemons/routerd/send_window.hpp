// How much may be on its way to the services of one channel. A publisher drops what a connection cannot take, so
// requests beyond that wait here until earlier ones are answered, which shows that they have arrived.
#ifndef KESTRO_ROUTERD_SEND_WINDOW_HPP
#define KESTRO_ROUTERD_SEND_WINDOW_HPP

#include <asio/awaitable.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <string_view>

namespace kestro::routerd {

class SendWindow {
 public:
  using Clock = std::chrono::steady_clock;

  explicit SendWindow(size_t capacity) : capacity_(capacity) {}

  // Bytes in the window, from entering until the object goes or they have surely been taken.
  class Place {
   public:
    explicit Place(SendWindow& window) : window_(window) {}
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    ~Place();

    // Enters when nobody waits and there is room. Spares the coroutine that waiting would take.
    bool enter_at_once(size_t bytes);
    // Waits, in the order of arrival, until there is room. False when the deadline passes or the request is given up
    // first.
    asio::awaitable<bool> enter(asio::io_context& io, size_t bytes, Clock::time_point deadline, const bool& given_up);

   private:
    friend class SendWindow;
    void settle();
    void wake() noexcept;

    SendWindow& window_;
    size_t bytes_ = 0;
    Clock::time_point settled_{};
    // Which list holds it, and where: nobody searches among those who wait.
    enum class State { Outside, Waiting, Inside };
    State state_ = State::Outside;
    std::list<Place*>::iterator position_;
    asio::steady_timer* timer_ = nullptr;  // of the wait
  };

  // Lets everybody who waits look whether the request was given up.
  void wake_all() noexcept;

 private:
  [[nodiscard]] bool has_room(size_t bytes);
  void wake_first() noexcept;

  size_t capacity_;
  size_t used_ = 0;
  std::list<Place*> inside_;   // by the time of entering
  std::list<Place*> waiting_;  // by the time of arrival
};

class SendWindows {
 public:
  explicit SendWindows(size_t capacity) : capacity_(capacity) {}
  SendWindow& of(std::string_view channel) {
    const auto found = windows_.find(channel);
    return found != windows_.end() ? found->second
                                   : windows_.try_emplace(std::string(channel), capacity_).first->second;
  }
  void wake_all() {
    for (auto& [channel, window] : windows_) window.wake_all();
  }

 private:
  size_t capacity_;
  std::map<std::string, SendWindow, std::less<>> windows_;
};

}  // namespace kestro::routerd

#endif
