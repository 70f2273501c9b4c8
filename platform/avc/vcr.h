// The tape recorder/player subunit's commands and the unit's identification, as AV/C
// frames: which command each transport mode of the device-control interface sends, and
// how the status answers read back as that interface's values (modes, BCD timecode, user
// bits, track number, frame rate, device type). Pure C++, no bus access.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/avc/avc_frame.h"

namespace kc::avc::vcr {

// Tape subunit opcodes.
inline constexpr std::uint8_t op_load_medium = 0xC1;
inline constexpr std::uint8_t op_record = 0xC2;
inline constexpr std::uint8_t op_play = 0xC3;
inline constexpr std::uint8_t op_wind = 0xC4;
inline constexpr std::uint8_t op_transport_state = 0xD0;
inline constexpr std::uint8_t op_time_code = 0x51;
inline constexpr std::uint8_t op_absolute_track_number = 0x52;
inline constexpr std::uint8_t op_binary_group = 0x5A;
inline constexpr std::uint8_t op_output_signal_mode = 0x78;
// Unit opcodes.
inline constexpr std::uint8_t op_output_plug_signal_format = 0x18;
inline constexpr std::uint8_t op_unit_info = 0x30;
inline constexpr std::uint8_t op_subunit_info = 0x31;

// PLAY operands.
inline constexpr std::uint8_t play_next_frame = 0x30;
inline constexpr std::uint8_t play_slowest_forward = 0x31;
inline constexpr std::uint8_t play_fastest_forward = 0x3F;
inline constexpr std::uint8_t play_previous_frame = 0x40;
inline constexpr std::uint8_t play_slowest_reverse = 0x41;
inline constexpr std::uint8_t play_fastest_reverse = 0x4F;
inline constexpr std::uint8_t play_reverse = 0x65;
inline constexpr std::uint8_t play_reverse_pause = 0x6D;
inline constexpr std::uint8_t play_forward = 0x75;
inline constexpr std::uint8_t play_forward_pause = 0x7D;
// WIND operands.
inline constexpr std::uint8_t wind_high_speed_rewind = 0x45;
inline constexpr std::uint8_t wind_stop = 0x60;
inline constexpr std::uint8_t wind_rewind = 0x65;
inline constexpr std::uint8_t wind_fast_forward = 0x75;
// RECORD operands.
inline constexpr std::uint8_t record_pause = 0x7D;

// The control command that puts the tape into `mode` (an ED_MODE_* value). Freeze pauses
// the way the tape moves now: RECORD PAUSE while `recording`, PLAY FORWARD PAUSE
// otherwise. Empty for modes this station never sends to a tape (record, which could
// overwrite it) and for values that are no transport mode.
std::optional<Frame> mode_command(long mode, bool recording);

// What TRANSPORT STATE reports: the opcode of the mode the tape is in and its operand.
struct TransportState {
    std::uint8_t opcode = 0;
    std::uint8_t operand = 0;
};

Frame transport_state_query();
HRESULT decode_transport_state(const Frame& query, const Frame& response, TransportState& out);
// The ED_MODE_* value of a state; 0 for a state with no such value.
long ed_mode(TransportState state);
// Moving forward or back at some speed: not paused, not between the frames of a step.
bool is_playing(TransportState state);
bool is_recording(TransportState state);

// TIME CODE status: the timecode as one packed BCD word, hours in the top byte and
// frames in the bottom one. The flag bits the tape keeps beside the digits (drop frame,
// colour frame, binary group flags) are no part of the count and are cleared. A device
// with no timecode here answers all ones: hresult_no_data().
Frame time_code_query();
HRESULT decode_time_code(const Frame& query, const Frame& response, std::uint32_t& bcd);

// BINARY GROUP status: the user bits recorded with the timecode, first group in the
// low byte; bit 0 is the user flag.
Frame binary_group_query();
HRESULT decode_binary_group(const Frame& query, const Frame& response, std::uint32_t& user);

// ABSOLUTE TRACK NUMBER status: three bytes, low first, holding the track number above
// a blank flag in bit 0 (the same layout the seek command sends). All ones: no data.
Frame track_number_query();
HRESULT decode_track_number(const Frame& query, const Frame& response, std::uint32_t& track);

// The frame rate as ED_RATE_25 or ED_RATE_2997, from the tape subunit's OUTPUT SIGNAL
// MODE or, for units that lack it, from the unit's output plug signal format. Both carry
// a 50-field flag in the top bit; DV knows no other systems than 625/50 and 525/60.
Frame output_signal_mode_query();
HRESULT decode_output_signal_mode(const Frame& query, const Frame& response, long& rate);
Frame plug_signal_format_query();
HRESULT decode_plug_signal_format(const Frame& query, const Frame& response, long& rate);

// SUBUNIT INFO (page 0): ED_DEVTYPE_VCR when the unit has a tape subunit,
// ED_DEVTYPE_CAMERA when it has a camera subunit and no tape (a camcorder in camera
// mode), 0 otherwise.
Frame subunit_info_query();
HRESULT decode_subunit_info(const Frame& query, const Frame& response, long& device_type);

}  // namespace kc::avc::vcr
