// The gate of one capture file across the runs of its graph, as each host's gate element
// keeps it: the file's log opened as a run starts, the FrameGate made at the run's first
// frame once the stream's DV system is known (or at its end from what the previous file
// handed over), and the file's counts kept after the run has ended, for the capture to
// judge the file by.
//
// Threads: start(), frame() and end() come from the host's streaming thread or its state
// changes, in order; split(), counters() and holds_break() from the user-interface thread.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>

#include "platform/capture/capture_log.h"
#include "platform/capture/frame_gate.h"

namespace kc::capture {

class FileGate {
  public:
    // Writes one frame of a stream of `system` to the file; false when it could not.
    using Write = std::function<bool(const Frame&, dv::DvSystem system)>;

    // `carry` (may be null) links the files of one capture; no log when `log_path` is
    // empty; `source` names the device in it.
    FileGate(std::shared_ptr<Carry> carry, std::string file, std::string log_path,
             std::string source, Write write);

    // A run begins: nothing held, a new log. False, with `error`, when the log could not
    // be opened; the capture goes on without one.
    bool start(std::error_code& error);
    // A frame of the stream, of `system` when its header says so.
    void frame(Frame frame, std::optional<dv::DvSystem> system);
    // The end of the stream (once a run): what is held goes into the file, or after a
    // split to the next one. `lost_at_end`: frames the source lost after its last.
    void end(std::int64_t lost_at_end = 0);
    // The file is complete: the log's closing lines; the counts stay for counters().
    void finish();

    void split();
    GateCounters counters();
    bool holds_break();
    // The stream's system once known; 625-50 before.
    dv::DvSystem system();

  private:
    // Call with lock_ held.
    FrameGate& gate_for(std::optional<dv::DvSystem> system);

    const std::shared_ptr<Carry> carry_;
    const std::string file_;
    const std::string log_path_;
    const std::string source_;
    const Write write_;

    // Guards the gate's making against the user-interface thread's calls; the gate guards
    // itself.
    std::mutex lock_;
    std::unique_ptr<CaptureLog> log_;
    std::unique_ptr<FrameGate> gate_;
    dv::DvSystem system_ = dv::DvSystem::pal_625_50;
    // The counts of the run that ended last.
    GateCounters final_counters_;
    bool split_asked_ = false;
    bool ended_ = false;
};

}  // namespace kc::capture
