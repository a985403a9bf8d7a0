#pragma once

#include <mutex>

namespace hxr {

/// A record that several threads share whole: a sweep's thread writes it while callers read it.
template <typename Record>
class Published {
  public:
    Record copy() const {
        const std::lock_guard lock(mutex_);
        return record_;
    }

    /// Changes the record in one go: `change` gets it and must not wait for anything.
    template <typename Change>
    void update(Change&& change) {
        const std::lock_guard lock(mutex_);
        change(record_);
    }

  private:
    mutable std::mutex mutex_;
    Record record_;
};

}  // namespace hxr
