// CapDvDevice: control of a DV camcorder or deck: DV mode, frame rate, timecode and
// absolute track number, tape transport and the AV/C absolute-track-number seek.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "graph/stdcap.h"
#include "platform/media.h"

// Whether a capture filter offers DV on one of its output pins. Never raises.
bool is_dv(media::BaseFilter* filter);

// The AV/C ABSOLUTE TRACK NUMBER control command for `track`.
std::array<std::uint8_t, 8> seek_frame(long track);

class CapDvDevice {
  public:
    CapDvDevice();
    CapDvDevice(const CapDvDevice&) = delete;
    CapDvDevice& operator=(const CapDvDevice&) = delete;

    void attach(media::BaseFilter* filter);
    void detach();
    bool attached() const { return _filter != nullptr; }

    int query_dv_mode();
    std::string dv_mode_name(int mode) const;
    std::uint16_t time_format() const { return time_format_; }
    // False when no timecode could be read; `out` is then untouched. Never raises.
    bool get_timecode(Timecode& out);
    void seek(long track);
    void set_mode(long mode);
    void play();
    void stop();
    // The current transport mode; 0 when the device gives none. Never raises.
    long transport_mode();
    media::ExtTransport* transport();

  private:
    ComPtr<media::ExtTransport> transport_;
    ComPtr<media::TimecodeReader> timecode_reader;
    ComPtr<media::ExtDevice> device;
    media::BaseFilter* _filter = nullptr;  // owned by the graph
    std::vector<std::string> mode_names;
    std::uint16_t time_format_ = 0;
};
