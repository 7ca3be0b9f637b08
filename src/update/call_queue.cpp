#include "update/call_queue.h"

#include <algorithm>
#include <iterator>
#include <tuple>

namespace zarn {

CallQueue::Turn CallQueue::enter(std::string owner, IsGone isGone) {
  // The turn is made before a place is taken: copying the owner's name may throw.
  Turn turn(owner);
  Waiter self{.owner = std::move(owner), .isGone = std::move(isGone)};
  MutexLock lock(mutex_);
  if (isClosed_) {
    self.refusal = Refusal::Stopping;
  } else if (running_ < limits_.running && waiters_.empty()) {
    begin(shares_[self.owner]);
  } else if (makeRoomFor(self.owner)) {
    wait(self, lock);
  } else {
    self.refusal = Refusal::Full;
  }
  turn.refusal_ = self.refusal;
  if (self.refusal == Refusal::None) turn.queue_ = this;
  return turn;
}

CallQueue::Turn CallQueue::refused(Refusal reason) noexcept {
  Turn turn{std::string()};
  turn.refusal_ = reason;
  return turn;
}

void CallQueue::wait(Waiter& self, MutexLock<Mutex>& lock) {
  // What may throw comes first, so that a share counts nobody who does not wait: the node
  // is made here and only moved into the list below.
  Waiters place{&self};
  ++shares_[self.owner].waiting;
  waiters_.splice(waiters_.end(), place);
  while (!self.isSettled) lock.wait(self.settled);
}

std::size_t CallQueue::waitingOf(const std::string& owner) const {
  const auto share = shares_.find(owner);
  return share == shares_.end() ? 0 : share->second.waiting;
}

/// Whether a further call of `owner` may wait.
bool CallQueue::makeRoomFor(const std::string& owner) {
  const std::size_t half = limits_.waiting / 2;
  // Asking every waiter takes a call of the system each, so it is done only where the
  // places of those who are gone decide.
  if (waiters_.size() >= limits_.waiting || waitingOf(owner) >= half) refuseGone();
  const std::size_t own = waitingOf(owner);
  const bool othersWait = own < waiters_.size();
  if (othersWait && own >= half) return false;
  if (waiters_.size() < limits_.waiting) return true;
  if (waiters_.empty()) return false;  // a queue without places to wait in
  const std::size_t most = mostWaiting();
  // With a difference of one the two would only change places, and take each other's
  // for ever.
  if (most < own + 2) return false;
  // The newest call has waited least, so it loses least.
  auto waiter = std::prev(waiters_.end());
  while (waitingOf((*waiter)->owner) != most) --waiter;
  refuse(waiter, Refusal::Full);
  return true;
}

std::size_t CallQueue::mostWaiting() const {
  std::size_t most = 0;
  for (const auto& [owner, share] : shares_) most = std::max(most, share.waiting);
  return most;
}

void CallQueue::refuseGone() {
  for (auto waiter = waiters_.begin(); waiter != waiters_.end();) {
    const auto following = std::next(waiter);
    if ((*waiter)->isGone && (*waiter)->isGone()) refuse(waiter, Refusal::CallerGone);
    waiter = following;
  }
}

void CallQueue::refuse(Waiters::iterator waiter, Refusal reason) {
  (*waiter)->refusal = reason;
  const std::string& owner = (*waiter)->owner;
  --shares_.at(owner).waiting;
  forgetIfIdle(owner);
  settle(waiter);
}

/// The waiter's thread may leave, and its object with it, as soon as the lock is free.
void CallQueue::settle(Waiters::iterator waiter) {
  (*waiter)->isSettled = true;
  (*waiter)->settled.notify_one();
  waiters_.erase(waiter);
}

void CallQueue::begin(Share& share) {
  ++running_;
  ++share.running;
  share.servedAt = ++served_;
}

void CallQueue::serveNext() {
  while (running_ < limits_.running && !waiters_.empty()) {
    const auto waiter = next();
    if ((*waiter)->isGone && (*waiter)->isGone()) {
      refuse(waiter, Refusal::CallerGone);
      continue;
    }
    Share& share = shares_.at((*waiter)->owner);
    --share.waiting;
    begin(share);
    settle(waiter);
  }
}

CallQueue::Waiters::iterator CallQueue::next() {
  auto best = waiters_.begin();
  for (auto waiter = waiters_.begin(); waiter != waiters_.end(); ++waiter) {
    const Share& share = shares_.at((*waiter)->owner);
    const Share& bestShare = shares_.at((*best)->owner);
    // Of equals the oldest, which was seen first.
    if (std::tie(share.running, share.servedAt) < std::tie(bestShare.running, bestShare.servedAt))
      best = waiter;
  }
  return best;
}

void CallQueue::forgetIfIdle(const std::string& owner) {
  const auto share = shares_.find(owner);
  if (share != shares_.end() && share->second.running == 0 && share->second.waiting == 0)
    shares_.erase(share);
}

void CallQueue::leave(const std::string& owner) noexcept {
  const MutexLock lock(mutex_);
  // The share is kept until the next turn is given, which looks at how many calls of its
  // owner run and when it was served last.
  --running_;
  --shares_.at(owner).running;
  serveNext();
  forgetIfIdle(owner);
  if (running_ == 0) idle_.notify_all();
}

void CallQueue::close() noexcept {
  const MutexLock lock(mutex_);
  isClosed_ = true;
  while (!waiters_.empty()) refuse(waiters_.begin(), Refusal::Stopping);
}

bool CallQueue::waitUntilIdle(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  MutexLock lock(mutex_);
  while (running_ != 0) {
    const auto left = deadline - std::chrono::steady_clock::now();
    if (left <= left.zero()) return false;
    lock.waitFor(idle_, left);
  }
  return true;
}

std::size_t CallQueue::waiting() const {
  const MutexLock lock(mutex_);
  return waiters_.size();
}

const char* inWords(CallQueue::Refusal refusal) noexcept {
  switch (refusal) {
    case CallQueue::Refusal::Full:
      return "too many requests wait";
    case CallQueue::Refusal::CallerGone:
      return "its caller is gone";
    case CallQueue::Refusal::Stopping:
      return "the service is stopping";
    case CallQueue::Refusal::Unknown:
      return "its caller does not say who it is";
    case CallQueue::Refusal::None:
      break;
  }
  return "";
}

}  // namespace zarn
