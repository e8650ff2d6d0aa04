#include "station/archive/Readers.h"

#include <exception>
#include <utility>

namespace ostrel::station {

std::unique_ptr<Database> Readers::Take() {
  const std::lock_guard lock(mutex_);
  if (idle_.empty()) return nullptr;
  std::unique_ptr<Database> database = std::move(idle_.back());
  idle_.pop_back();
  return database;
}

Readers::Lease::Lease(Readers& readers) : readers_(readers) {
  readers_.free_.acquire();
  try {
    database_ = readers_.Take();
    if (!database_) database_ = OpenDatabase(readers_.where_);
  } catch (...) {
    readers_.free_.release();
    throw;
  }
  archive_.emplace(*database_);
}

Readers::Lease::~Lease() {
  // After a failure the connection may be spoiled; the next one opens its own.
  if (std::uncaught_exceptions() == 0) {
    const std::lock_guard lock(readers_.mutex_);
    readers_.idle_.push_back(std::move(database_));
  }
  readers_.free_.release();
}

}  // namespace ostrel::station
