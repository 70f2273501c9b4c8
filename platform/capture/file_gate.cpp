#include "platform/capture/file_gate.h"

#include <utility>

namespace kc::capture {

FileGate::FileGate(std::shared_ptr<Carry> carry, std::string file, std::string log_path,
                   std::string source, Write write)
    : carry_(std::move(carry)),
      file_(std::move(file)),
      log_path_(std::move(log_path)),
      source_(std::move(source)),
      write_(std::move(write)) {}

bool FileGate::start(std::error_code& error) {
    std::lock_guard lock(lock_);
    gate_.reset();
    final_counters_ = {};
    split_asked_ = false;
    ended_ = false;
    log_.reset();
    if (log_path_.empty()) {
        return true;
    }
    log_ = CaptureLog::open(log_path_, file_, source_, error);
    return log_ != nullptr;
}

FrameGate& FileGate::gate_for(std::optional<dv::DvSystem> system) {
    if (!gate_) {
        if (!system && carry_) {
            // A file with no frame of its own may still open with frames carried to it.
            std::lock_guard carry_lock(carry_->lock);
            if (carry_->pending) {
                system = carry_->system;
            }
        }
        system_ = system.value_or(dv::DvSystem::pal_625_50);
        if (log_) {
            log_->set_system(system_);
        }
        GateOptions options;
        options.system = system_;
        const dv::DvSystem stream = system_;
        gate_ = std::make_unique<FrameGate>(
            options, [this, stream](const Frame& frame) { return write_(frame, stream); }, carry_,
            log_.get());
        if (split_asked_) {
            gate_->split();
        }
    }
    return *gate_;
}

void FileGate::frame(Frame frame, std::optional<dv::DvSystem> system) {
    FrameGate* gate = nullptr;
    {
        std::lock_guard lock(lock_);
        gate = &gate_for(system);
    }
    gate->frame(std::move(frame));
}

void FileGate::end(std::int64_t lost_at_end) {
    FrameGate* gate = nullptr;
    {
        std::lock_guard lock(lock_);
        if (ended_) {
            return;
        }
        ended_ = true;
        gate = &gate_for(std::nullopt);
    }
    gate->lost_at_end(lost_at_end);
    gate->end();
}

void FileGate::finish() {
    std::lock_guard lock(lock_);
    if (gate_) {
        gate_->finish_log();
        final_counters_ = gate_->counters();
    } else if (log_) {
        log_->finish(std::nullopt, GateCounters{});
    }
    gate_.reset();
    log_.reset();
}

void FileGate::split() {
    std::lock_guard lock(lock_);
    split_asked_ = true;
    if (gate_) {
        gate_->split();
    }
}

GateCounters FileGate::counters() {
    std::lock_guard lock(lock_);
    if (gate_) {
        return gate_->counters();
    }
    GateCounters counters = final_counters_;
    // Before its first frame, a file that will not be split is owed what the previous one
    // handed over: it is written at the latest when the stream ends, so the file is not
    // too short to keep.
    if (carry_ && !split_asked_ && !ended_) {
        std::lock_guard carry_lock(carry_->lock);
        if (carry_->pending) {
            counters.written += static_cast<std::int64_t>(carry_->frames.size());
        }
    }
    return counters;
}

bool FileGate::holds_break() {
    std::lock_guard lock(lock_);
    return gate_ && gate_->holds_break();
}

dv::DvSystem FileGate::system() {
    std::lock_guard lock(lock_);
    return system_;
}

}  // namespace kc::capture
