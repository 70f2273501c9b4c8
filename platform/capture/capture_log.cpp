#include "platform/capture/capture_log.h"

#include <ctime>
#include <mutex>
#include <system_error>

namespace kc::capture {
namespace {

std::string now_text() {
    static std::mutex lock;  // std::localtime shares its result between callers
    std::lock_guard guard(lock);
    const std::time_t now = std::time(nullptr);
    char text[32] = "";
    if (const std::tm* local = std::localtime(&now)) {
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", local);
    }
    return text;
}

std::string frames_text(std::int64_t n) {
    return std::to_string(n) + (n == 1 ? " frame" : " frames");
}

}  // namespace

std::unique_ptr<CaptureLog> CaptureLog::open(const std::filesystem::path& path,
                                             const std::filesystem::path& file,
                                             const std::string& source, std::error_code& error) {
    error.clear();
    std::FILE* handle = std::fopen(path.string().c_str(), "w");
    if (handle == nullptr) {
        error = std::error_code(errno, std::generic_category());
        return nullptr;
    }
    // Every line goes to the system as it is written: a log cut off by a crash keeps it.
    std::setvbuf(handle, nullptr, _IONBF, 0);
    auto log = std::make_unique<CaptureLog>(
        [handle](std::string_view line) {
            std::fwrite(line.data(), 1, line.size(), handle);
            std::fputc('\n', handle);
        },
        file, source);
    log->file_handle_ = handle;
    return log;
}

CaptureLog::CaptureLog(Line line, const std::filesystem::path& file, const std::string& source)
    : line_(std::move(line)), file_(file) {
    line_("Kestrel Capture capture log, format 1");
    put("file", file.filename().string());
    put("source", source);
    put("started", now_text());
}

void CaptureLog::set_system(dv::DvSystem system) {
    system_ = system;
    put("system", dv::system_name(system));
}

CaptureLog::~CaptureLog() {
    if (file_handle_ != nullptr) {
        std::fclose(file_handle_);
    }
}

void CaptureLog::put(const std::string& name, const std::string& value) {
    line_(name + ": " + value);
}

std::string CaptureLog::position(const FrameFacts& facts) const {
    std::string text = facts.timecode ? dv::to_text(*facts.timecode) : "no timecode";
    if (facts.track) {
        text += ", track " + std::to_string(*facts.track);
    }
    if (facts.recorded) {
        text += ", recorded " + dv::to_text(*facts.recorded);
    }
    return text;
}

void CaptureLog::first_frame(const FrameFacts& facts, bool carried) {
    put("first frame",
        position(facts) + (carried ? " (the recording break the previous file ended at)" : ""));
}

void CaptureLog::lost(const FrameFacts& before, const FrameFacts& at, std::int64_t frames,
                      LossPlace place) {
    std::string where;
    if (before.timecode && at.timecode) {
        const std::int64_t gap = dv::to_frame_count(*at.timecode, system_) -
                                 dv::to_frame_count(*before.timecode, system_) - 1;
        if (gap == frames && gap > 0) {
            const std::int64_t first = dv::to_frame_count(*before.timecode, system_) + 1;
            where = dv::to_text(dv::from_frame_count(first, system_)) + " to " +
                    dv::to_text(dv::from_frame_count(first + gap - 1, system_));
        }
    }
    if (where.empty()) {
        where = "before " +
                (at.timecode ? dv::to_text(*at.timecode) : std::string("a frame without timecode"));
    }
    const char* why = place == LossPlace::source       ? "lost by the source"
                      : place == LossPlace::on_the_way ? "lost between the source and the file"
                                                       : "not written";
    put("dropped", frames_text(frames) + ", " + where + ", " + why);
}

void CaptureLog::lost_at_end(const std::optional<FrameFacts>& last, std::int64_t frames) {
    put("dropped", frames_text(frames) + ", after " +
                       (last && last->timecode ? dv::to_text(*last->timecode)
                                               : std::string("the last frame")) +
                       ", lost by the source as the stream ended");
}

void CaptureLog::write_failed(const FrameFacts& at) {
    put("dropped", "1 frame, " + position(at) + ", not written (the file could not take it)");
}

void CaptureLog::repeat(const FrameFacts& frame) {
    put("repeat", position(frame) + ", shown again by the tape, not written twice");
}

void CaptureLog::recording_break(const FrameFacts& before, const FrameFacts& after,
                                 BreakOutcome outcome) {
    std::string what;
    if (after.user_flag && !before.user_flag) {
        what = "recording start flag";
    } else if (before.timecode && after.timecode) {
        const std::int64_t step = dv::to_frame_count(*after.timecode, system_) -
                                  dv::to_frame_count(*before.timecode, system_);
        what = step < 0 ? "timecode steps back " + frames_text(-step)
                        : "timecode jumps forward " + frames_text(step);
    } else {
        what = "timecode break";
    }
    const std::string from = before.timecode ? dv::to_text(*before.timecode) : "?";
    const std::string to = after.timecode ? dv::to_text(*after.timecode) : "?";
    const char* outcome_text = outcome == BreakOutcome::split
                                   ? "the file ends here and the next begins"
                               : outcome == BreakOutcome::begins ? "the file begins here"
                                                                 : "kept in this file";
    put("break", from + " to " + to + ", " + what + ", " + outcome_text);
}

void CaptureLog::split_without_break(const std::optional<FrameFacts>& last) {
    put("split",
        "after " +
            (last && last->timecode ? dv::to_text(*last->timecode) : std::string("the start")) +
            ", the file ends here and the next begins");
}

void CaptureLog::finish(const std::optional<FrameFacts>& last, const GateCounters& counters) {
    if (finished_) {
        return;
    }
    finished_ = true;
    if (last) {
        put("last frame", position(*last));
    }
    put("frames", std::to_string(counters.written));
    put("dropped frames", std::to_string(counters.dropped()));
    if (counters.repeats > 0) {
        put("repeated frames not written", std::to_string(counters.repeats));
    }
    std::error_code error;
    const auto size = std::filesystem::file_size(file_, error);
    put("file size", error ? "unknown (" + error.message() + ")" : std::to_string(size) + " bytes");
    put("ended", now_text());
}

}  // namespace kc::capture
