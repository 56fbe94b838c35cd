#include "platform/dispatch/MainQueue.h"

#include <mutex>

namespace oxelo {

namespace {
std::mutex& slotMutex() {
  static std::mutex mutex;
  return mutex;
}
std::shared_ptr<Queue>& slot() {
  static std::shared_ptr<Queue> queue;
  return queue;
}
}  // namespace

std::shared_ptr<Queue> MainQueue::get() {
  std::lock_guard lock(slotMutex());
  if (!slot()) slot() = Queue::createDriven("main");
  return slot();
}

void MainQueue::set(std::shared_ptr<Queue> queue) {
  std::lock_guard lock(slotMutex());
  slot() = std::move(queue);
}

}  // namespace oxelo
