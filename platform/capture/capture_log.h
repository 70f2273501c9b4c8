// CaptureLog: the small text file written beside every capture file, so that whoever
// archives a tape can show that it was captured whole: where the file starts and ends on
// the tape, when those frames were recorded, every recording break met and every frame
// that went missing, with where on the tape and why.
//
// One line per fact, "name: value", in the order things happened; the format is described
// in the manual. Each line reaches the file when it is written (no buffering in the
// process), so a log cut off by a crash still tells everything up to that moment.
//
// Not thread-safe: its FrameGate calls it under the gate's lock.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/capture/frame_gate.h"

namespace kc::capture {

// Why frames went missing.
enum class LossPlace { source, on_the_way, writer };

// What happened at a recording break: the file ended there, the file began there (the
// previous one ended just before it), or the file went on across it.
enum class BreakOutcome { split, begins, kept };

class CaptureLog {
  public:
    using Line = std::function<void(std::string_view)>;

    // Creates (or empties) the log at `path` for the capture file `file`. Null with `error`
    // set when it cannot be written.
    static std::unique_ptr<CaptureLog> open(const std::filesystem::path& path,
                                            const std::filesystem::path& file,
                                            const std::string& source, std::error_code& error);
    // A log whose lines go to `line` (tests).
    CaptureLog(Line line, const std::filesystem::path& file, const std::string& source);
    ~CaptureLog();
    CaptureLog(const CaptureLog&) = delete;
    CaptureLog& operator=(const CaptureLog&) = delete;

    // The DV system of the stream, once its first frame has told it.
    void set_system(dv::DvSystem system);
    void first_frame(const FrameFacts& facts, bool carried);
    void lost(const FrameFacts& before, const FrameFacts& at, std::int64_t frames, LossPlace place);
    void write_failed(const FrameFacts& at);
    // Frames the source lost after the last frame it delivered (`last`, when there was one).
    void lost_at_end(const std::optional<FrameFacts>& last, std::int64_t frames);
    void repeat(const FrameFacts& frame);
    void recording_break(const FrameFacts& before, const FrameFacts& after, BreakOutcome outcome);
    // The file ended where the capture split it, no break having shown in the stream yet.
    void split_without_break(const std::optional<FrameFacts>& last);
    // The closing lines: the last frame, the counts and the file's size as it is on disk
    // now (call it once the file is closed).
    void finish(const std::optional<FrameFacts>& last, const GateCounters& counters);

  private:
    void put(const std::string& name, const std::string& value);
    std::string position(const FrameFacts& facts) const;

    Line line_;
    std::FILE* file_handle_ = nullptr;
    std::filesystem::path file_;
    dv::DvSystem system_ = dv::DvSystem::pal_625_50;
    bool finished_ = false;
};

}  // namespace kc::capture
