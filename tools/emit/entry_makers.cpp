#include "tools/emit/entry_makers.h"

#include <algorithm>
#include <system_error>
#include <utility>

entry_makers::entry_makers(size_t threads,
                           const std::function<std::unique_ptr<pack_maker>()>& new_maker)
    : own_maker_(new_maker()) {
  while (makers_.size() < threads) makers_.push_back(new_maker());
  threads_.reserve(threads);
  try {
    for (const auto& maker : makers_)
      threads_.emplace_back([this, &maker = *maker] { work(maker); });
  } catch (const std::system_error&) {
    if (threads_.empty()) throw;
  }
}

entry_makers::~entry_makers() {
  {
    const std::lock_guard lock(mutex_);
    is_over_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

entry_makers::submitted* entry_makers::first_waiting() {
  const auto found = std::find_if(packs_.begin(), packs_.end(),
                                  [](const submitted& one) { return one.is == progress::waits; });
  return found == packs_.end() ? nullptr : &*found;
}

// Places in the queue stay where they are while others are added and taken at its ends.
void entry_makers::make(submitted& one, pack_maker& maker, std::unique_lock<std::mutex>& lock) {
  one.is = progress::is_made;
  lock.unlock();
  maker.make(*one.pack);
  lock.lock();
  one.is = progress::made;
  changed_.notify_all();
}

void entry_makers::work(pack_maker& maker) {
  std::unique_lock lock(mutex_);
  while (!is_over_) {
    if (submitted* const one = first_waiting(); one != nullptr)
      make(*one, maker, lock);
    else
      changed_.wait(lock);
  }
}

void entry_makers::submit(std::unique_ptr<line_pack> pack) {
  {
    const std::lock_guard lock(mutex_);
    packs_.push_back({std::move(pack)});
  }
  changed_.notify_one();
}

std::unique_ptr<line_pack> entry_makers::take_first() {
  std::unique_ptr<line_pack> pack = std::move(packs_.front().pack);
  packs_.pop_front();
  return pack;
}

std::unique_ptr<line_pack> entry_makers::next() {
  std::unique_lock lock(mutex_);
  if (packs_.empty()) return nullptr;
  while (packs_.front().is != progress::made) {
    if (submitted* const one = first_waiting(); one != nullptr)
      make(*one, *own_maker_, lock);
    else
      changed_.wait(lock);
  }
  return take_first();
}

std::unique_ptr<line_pack> entry_makers::next_if_made() {
  const std::lock_guard lock(mutex_);
  return packs_.empty() || packs_.front().is != progress::made ? nullptr : take_first();
}
