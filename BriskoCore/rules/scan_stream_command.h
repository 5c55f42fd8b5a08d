#pragma once

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>

#include "protocol/scan_records.h"

namespace brisko {

// The scan ended early because it was asked to stop.
class ScanStopped : public std::runtime_error {
 public:
  ScanStopped() : std::runtime_error("The scan was stopped before it finished.") {}
};

// Receives the events of a scan one at a time, never from two threads at once.
using ScanEventSink = std::function<void(const ScanEvent&)>;

// The engine's "scan-stream": measures the whole rule catalog over `home` and
// writes `started`, then `progress` for each step of the progress ledger,
// `finding` as soon as each finding is made, `warning` for each guard text,
// `blocked` for each rule whose location could not be read, and last
// `completed` with the whole report, which is also returned.
//
// Findings and rows whose paths or names aren't valid UTF-8 can't be written
// as JSON text: they are left out and counted in one warning. Raising `stop`
// (from another thread or a signal handler) ends the walks early and throws
// ScanStopped without writing `completed`; an exception thrown by the sink
// stops the scan the same way and is then thrown again.
ScanReport runScanStream(const std::string& home, bool includeDownloadedInstallers,
                         const ScanEventSink& sink, std::atomic<bool>* stop = nullptr);

}  // namespace brisko
