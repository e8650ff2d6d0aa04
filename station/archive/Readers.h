// A few connections for those who only read: pages, reports, the search for gaps. Each is used by one thread at a time.
#pragma once

#include <memory>
#include <mutex>
#include <semaphore>
#include <string>
#include <vector>

#include "station/archive/Archive.h"

namespace ostrel::station {

class Readers {
 public:
  explicit Readers(std::string where) : where_(std::move(where)) {}

  /// A connection for as long as this lives. Waits for one; throws DatabaseAway when the archive cannot be opened.
  class Lease {
   public:
    explicit Lease(Readers& readers);
    ~Lease();
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;
    [[nodiscard]] Archive& operator*() { return archive_.value(); }
    [[nodiscard]] Archive* operator->() { return &archive_.value(); }

   private:
    Readers& readers_;
    std::unique_ptr<Database> database_;
    std::optional<Archive> archive_;
  };

 private:
  static constexpr std::ptrdiff_t kConnections = 6;
  [[nodiscard]] std::unique_ptr<Database> Take();

  std::string where_;
  std::counting_semaphore<kConnections> free_{kConnections};
  std::mutex mutex_;
  std::vector<std::unique_ptr<Database>> idle_;
};

}  // namespace ostrel::station
