#pragma once

// A stream of events from a producer thread to one consumer, with an
// unbounded buffer: the producer (the reader of an engine's pipe) never waits
// for a slow consumer, and no event is dropped. The stream ends either
// cleanly or with an error, which the consumer receives after the last event.
//
// Dropping the consumer's `EventStream` before the end counts as "the consumer
// stopped": the termination handler runs once (it cancels the producer, which
// for an engine stream terminates the process). The handler also runs once
// when the stream ends by itself.

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace brisko {

namespace detail {

template <typename Event>
struct EventStreamState {
  std::mutex lock;
  std::condition_variable changed;
  std::deque<Event> buffer;             // guarded by lock
  bool finished = false;                // guarded by lock
  std::exception_ptr error;             // guarded by lock; set at most once, with finished
  std::function<void()> onTermination;  // guarded by lock; taken once

  void terminate() {
    std::function<void()> handler;
    {
      std::lock_guard guard(lock);
      handler = std::exchange(onTermination, nullptr);
    }
    if (handler) handler();
  }
};

}  // namespace detail

// The producer's end. Copies share the stream. Any thread may call it.
template <typename Event>
class EventSink {
 public:
  explicit EventSink(std::shared_ptr<detail::EventStreamState<Event>> state)
      : state_(std::move(state)) {}

  // False once the stream has finished (the event is then dropped: nobody
  // can read it any more).
  bool yield(Event event) const {
    {
      std::lock_guard guard(state_->lock);
      if (state_->finished) return false;
      state_->buffer.push_back(std::move(event));
    }
    state_->changed.notify_all();
    return true;
  }

  // Ends the stream, with an error or cleanly; only the first call counts.
  void finish(std::exception_ptr error = nullptr) const {
    {
      std::lock_guard guard(state_->lock);
      if (state_->finished) return;
      state_->finished = true;
      state_->error = std::move(error);
    }
    state_->changed.notify_all();
    state_->terminate();
  }

  bool isFinished() const {
    std::lock_guard guard(state_->lock);
    return state_->finished;
  }

 private:
  std::shared_ptr<detail::EventStreamState<Event>> state_;
};

// The consumer's end: move-only; one consumer.
template <typename Event>
class EventStream {
 public:
  // A stream and the sink that feeds it. `onTermination` runs once, on the
  // thread that finishes the stream or drops the consumer.
  static std::pair<EventStream, EventSink<Event>> make(std::function<void()> onTermination = {}) {
    auto state = std::make_shared<detail::EventStreamState<Event>>();
    state->onTermination = std::move(onTermination);
    return {EventStream(state), EventSink<Event>(state)};
  }

  // A stream that has already ended with `error`.
  static EventStream failed(std::exception_ptr error) {
    auto [stream, sink] = make();
    sink.finish(std::move(error));
    return std::move(stream);
  }

  EventStream(EventStream&&) noexcept = default;
  EventStream& operator=(EventStream&& other) noexcept {
    if (this != &other) {
      release();
      state_ = std::move(other.state_);
    }
    return *this;
  }
  EventStream(const EventStream&) = delete;
  EventStream& operator=(const EventStream&) = delete;
  ~EventStream() { release(); }

  // Blocks until the next event. None when the stream finished cleanly; the
  // stream's error is thrown once every buffered event has been taken.
  std::optional<Event> next() {
    std::unique_lock guard(state_->lock);
    state_->changed.wait(guard, [&] { return !state_->buffer.empty() || state_->finished; });
    if (!state_->buffer.empty()) {
      Event event = std::move(state_->buffer.front());
      state_->buffer.pop_front();
      return event;
    }
    if (state_->error) std::rethrow_exception(state_->error);
    return std::nullopt;
  }

 private:
  explicit EventStream(std::shared_ptr<detail::EventStreamState<Event>> state)
      : state_(std::move(state)) {}

  void release() {
    if (state_) state_->terminate();
    state_.reset();
  }

  std::shared_ptr<detail::EventStreamState<Event>> state_;
};

}  // namespace brisko
