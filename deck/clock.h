// The time the virtual deck runs on. Everything that takes time on a real VCR (playing,
// winding, seeking, the pace of frames) is computed from a Clock, so tests drive the deck
// with a ManualClock they move by hand and the program runs it on a SteadyClock.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace kc::deck {

class Clock {
  public:
    virtual ~Clock() = default;

    // Milliseconds since an arbitrary origin; never goes back. Any thread.
    virtual std::int64_t now_ms() const = 0;

    // Blocks the caller, which holds `lock`, until `cv` is notified or the clock may have
    // reached `deadline_ms`; may return early. The lock is released while waiting.
    virtual void wait_until(std::condition_variable& cv, std::unique_lock<std::mutex>& lock,
                            std::int64_t deadline_ms) const = 0;
};

// Real time, from the monotonic clock; the origin is the clock's construction.
class SteadyClock final : public Clock {
  public:
    SteadyClock() : origin_(std::chrono::steady_clock::now()) {}

    std::int64_t now_ms() const override {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::steady_clock::now() - origin_)
            .count();
    }

    void wait_until(std::condition_variable& cv, std::unique_lock<std::mutex>& lock,
                    std::int64_t deadline_ms) const override {
        cv.wait_until(lock, origin_ + std::chrono::milliseconds(deadline_ms));
    }

  private:
    std::chrono::steady_clock::time_point origin_;
};

// Time that moves only when the test moves it. A waiter re-checks every millisecond of
// real time, so a thread blocked on the deck continues soon after the test advances the
// clock, without the clock having to know who waits. With auto-advance on, a wait instead
// moves the clock to its deadline at once: a test whose own thread blocks on the deck (a
// seek that returns on arrival) then runs instantly and can read how much time passed.
class ManualClock final : public Clock {
  public:
    explicit ManualClock(std::int64_t start_ms = 0) : now_(start_ms) {}

    std::int64_t now_ms() const override { return now_.load(); }

    void advance_ms(std::int64_t delta_ms) { now_.fetch_add(delta_ms > 0 ? delta_ms : 0); }
    void set_auto_advance(bool on) { auto_advance_ = on; }

    void wait_until(std::condition_variable& cv, std::unique_lock<std::mutex>& lock,
                    std::int64_t deadline_ms) const override {
        std::int64_t now = now_ms();
        if (auto_advance_) {
            while (now < deadline_ms && !now_.compare_exchange_weak(now, deadline_ms)) {
            }
            return;
        }
        if (now < deadline_ms) {
            cv.wait_for(lock, std::chrono::milliseconds(1));
        }
    }

  private:
    mutable std::atomic<std::int64_t> now_;
    std::atomic<bool> auto_advance_{false};
};

}  // namespace kc::deck
