#pragma once
// The statistics file Velmora reads for its usage pings (MAC_SHADOW_STATS_FILE): rewritten
// whole and atomically (a temporary file renamed over it), at most once per interval while the
// counters move, and once more at the end.

#include "server-linux/client_book.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <string>

namespace velmora::ServerHelper {

// Writes `bytes` to a temporary file beside `path` and renames it over `path`; false (the old
// file untouched, no temporary left) when that fails.
bool replaceFile(const std::string& path, const std::string& bytes);

class StatsFile {
public:
    // `read` gives the current counters; nothing is written before the first change.
    StatsFile(std::string path, std::function<StatsSnapshot()> read, std::chrono::seconds interval);
    ~StatsFile();
    StatsFile(const StatsFile&) = delete;
    StatsFile& operator=(const StatsFile&) = delete;

    // From any thread: the counters moved. Arms the descriptor for the next write, if not armed.
    void changed();
    // Readable when a write is due; the owner then calls writeDue().
    int descriptor() const { return timer_; }
    void writeDue();
    // The last write, whatever the interval.
    void writeNow();

private:
    std::string path_;
    std::function<StatsSnapshot()> read_;
    std::chrono::nanoseconds interval_;
    int timer_ = -1;
    std::atomic<bool> dirty_{false};
    std::atomic<std::int64_t> lastWrite_{0};  // CLOCK_MONOTONIC nanoseconds; 0: never
    bool failureLogged_ = false;
};

}  // namespace velmora::ServerHelper
