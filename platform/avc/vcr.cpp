#include "platform/avc/vcr.h"

#include "platform/media.h"

namespace kc::avc::vcr {
namespace {

// Status commands of the tape subunit that answer four bytes after the STATUS operand.
constexpr std::uint8_t operand_status = 0x71;

Frame tape_control(std::uint8_t opcode, std::uint8_t operand) {
    return command(CommandType::control, subunit_tape, opcode, {operand});
}

Frame four_byte_status(std::uint8_t opcode) {
    return command(CommandType::status, subunit_tape, opcode,
                   {operand_status, operand_query, operand_query, operand_query, operand_query});
}

// Checks a four-byte status answer and gives its bytes 4 to 7.
HRESULT four_bytes(const Frame& query, const Frame& response, std::uint8_t (&out)[4]) {
    const HRESULT hr = check_response(query, response);
    if (failed(hr)) {
        return hr;
    }
    if (response.size() < 8) {
        return hresult_bad_response();
    }
    for (int i = 0; i < 4; ++i) {
        out[i] = response[4 + static_cast<std::size_t>(i)];
    }
    return S_OK;
}

long rate_of_system(std::uint8_t flags) {
    return (flags & 0x80) != 0 ? media::ED_RATE_25 : media::ED_RATE_2997;
}

}  // namespace

std::optional<Frame> mode_command(long mode, bool recording) {
    switch (mode) {
        case media::ED_MODE_PLAY:
        case media::ED_MODE_THAW:
            return tape_control(op_play, play_forward);
        case media::ED_MODE_STOP:
            return tape_control(op_wind, wind_stop);
        case media::ED_MODE_FREEZE:
            return recording ? tape_control(op_record, record_pause)
                             : tape_control(op_play, play_forward_pause);
        case media::ED_MODE_FF:
            return tape_control(op_wind, wind_fast_forward);
        case media::ED_MODE_REW:
            return tape_control(op_wind, wind_rewind);
        case media::ED_MODE_STEP_FWD:
            return tape_control(op_play, play_next_frame);
        case media::ED_MODE_STEP_REV:
            return tape_control(op_play, play_previous_frame);
        case media::ED_MODE_PLAY_FASTEST_FWD:
            return tape_control(op_play, play_fastest_forward);
        case media::ED_MODE_PLAY_FASTEST_REV:
            return tape_control(op_play, play_fastest_reverse);
        case media::ED_MODE_PLAY_SLOWEST_FWD:
            return tape_control(op_play, play_slowest_forward);
        case media::ED_MODE_PLAY_SLOWEST_REV:
            return tape_control(op_play, play_slowest_reverse);
        default:
            return std::nullopt;
    }
}

Frame transport_state_query() {
    return command(CommandType::status, subunit_tape, op_transport_state, {0x7F});
}

HRESULT decode_transport_state(const Frame& query, const Frame& response, TransportState& out) {
    const HRESULT hr = check_response(query, response, OpcodeEcho::free);
    if (failed(hr)) {
        return hr;
    }
    if (response.size() < 4) {
        return hresult_bad_response();
    }
    out.opcode = response[2];
    out.operand = response[3];
    return S_OK;
}

long ed_mode(TransportState state) {
    switch (state.opcode) {
        case op_play:
            switch (state.operand) {
                case play_forward_pause:
                case play_reverse_pause:
                    return media::ED_MODE_FREEZE;
                case play_next_frame:
                    return media::ED_MODE_STEP_FWD;
                case play_previous_frame:
                    return media::ED_MODE_STEP_REV;
                case play_fastest_forward:
                    return media::ED_MODE_PLAY_FASTEST_FWD;
                case play_fastest_reverse:
                    return media::ED_MODE_PLAY_FASTEST_REV;
                case play_slowest_forward:
                    return media::ED_MODE_PLAY_SLOWEST_FWD;
                case play_slowest_reverse:
                    return media::ED_MODE_PLAY_SLOWEST_REV;
                default:
                    // Every other speed, forward or reverse, is the tape playing.
                    return media::ED_MODE_PLAY;
            }
        case op_wind:
            switch (state.operand) {
                case wind_fast_forward:
                    return media::ED_MODE_FF;
                case wind_rewind:
                case wind_high_speed_rewind:
                    return media::ED_MODE_REW;
                default:
                    return media::ED_MODE_STOP;
            }
        case op_record:
            // RECORD PAUSE, and the insert-edit pauses 0x40 to 0x43.
            return (state.operand & 0xF0) == 0x40 || state.operand == record_pause
                       ? media::ED_MODE_FREEZE
                       : media::ED_MODE_RECORD;
        case op_load_medium:
            // Loading or ejecting: the tape does not move under the heads.
            return media::ED_MODE_STOP;
        default:
            return 0;
    }
}

bool is_playing(TransportState state) {
    // Paused, or caught between the frames of a step, the picture stands still.
    const long mode = ed_mode(state);
    return state.opcode == op_play && mode != media::ED_MODE_FREEZE &&
           mode != media::ED_MODE_STEP_FWD && mode != media::ED_MODE_STEP_REV;
}

bool is_recording(TransportState state) {
    return state.opcode == op_record;
}

Frame time_code_query() {
    return four_byte_status(op_time_code);
}

HRESULT decode_time_code(const Frame& query, const Frame& response, std::uint32_t& bcd) {
    std::uint8_t b[4];
    const HRESULT hr = four_bytes(query, response, b);
    if (failed(hr)) {
        return hr;
    }
    // Frames, seconds, minutes, hours.
    if (b[0] == 0xFF && b[1] == 0xFF && b[2] == 0xFF && b[3] == 0xFF) {
        return hresult_no_data();
    }
    bcd = (static_cast<std::uint32_t>(b[3] & 0x3F) << 24) |
          (static_cast<std::uint32_t>(b[2] & 0x7F) << 16) |
          (static_cast<std::uint32_t>(b[1] & 0x7F) << 8) | static_cast<std::uint32_t>(b[0] & 0x3F);
    return S_OK;
}

Frame binary_group_query() {
    return four_byte_status(op_binary_group);
}

HRESULT decode_binary_group(const Frame& query, const Frame& response, std::uint32_t& user) {
    std::uint8_t b[4];
    const HRESULT hr = four_bytes(query, response, b);
    if (failed(hr)) {
        return hr;
    }
    user = static_cast<std::uint32_t>(b[0]) | (static_cast<std::uint32_t>(b[1]) << 8) |
           (static_cast<std::uint32_t>(b[2]) << 16) | (static_cast<std::uint32_t>(b[3]) << 24);
    return S_OK;
}

Frame track_number_query() {
    return four_byte_status(op_absolute_track_number);
}

HRESULT decode_track_number(const Frame& query, const Frame& response, std::uint32_t& track) {
    std::uint8_t b[4];
    const HRESULT hr = four_bytes(query, response, b);
    if (failed(hr)) {
        return hr;
    }
    if (b[0] == 0xFF && b[1] == 0xFF && b[2] == 0xFF) {
        return hresult_no_data();
    }
    const std::uint32_t field = static_cast<std::uint32_t>(b[0]) |
                                (static_cast<std::uint32_t>(b[1]) << 8) |
                                (static_cast<std::uint32_t>(b[2]) << 16);
    track = field >> 1;
    return S_OK;
}

Frame output_signal_mode_query() {
    return command(CommandType::status, subunit_tape, op_output_signal_mode, {operand_query});
}

HRESULT decode_output_signal_mode(const Frame& query, const Frame& response, long& rate) {
    const HRESULT hr = check_response(query, response);
    if (failed(hr)) {
        return hr;
    }
    if (response.size() < 4 || response[3] == operand_query) {
        return hresult_bad_response();
    }
    rate = rate_of_system(response[3]);
    return S_OK;
}

Frame plug_signal_format_query() {
    // Output plug 0; FMT and the three FDF bytes to be filled in.
    return command(CommandType::status, subunit_unit, op_output_plug_signal_format,
                   {0x00, operand_query, operand_query, operand_query, operand_query});
}

HRESULT decode_plug_signal_format(const Frame& query, const Frame& response, long& rate) {
    const HRESULT hr = check_response(query, response);
    if (failed(hr)) {
        return hr;
    }
    // FMT 0x80 is DVCR; its first FDF byte carries the 50-field flag.
    if (response.size() < 6 || (response[4] & 0xFC) != 0x80) {
        return hresult_bad_response();
    }
    rate = rate_of_system(response[5]);
    return S_OK;
}

Frame subunit_info_query() {
    // Page 0, extension code 7; the four table entries to be filled in.
    return command(CommandType::status, subunit_unit, op_subunit_info,
                   {0x07, operand_query, operand_query, operand_query, operand_query});
}

HRESULT decode_subunit_info(const Frame& query, const Frame& response, long& device_type) {
    std::uint8_t entries[4];
    const HRESULT hr = four_bytes(query, response, entries);
    if (failed(hr)) {
        return hr;
    }
    bool tape = false;
    bool camera = false;
    for (const std::uint8_t entry : entries) {
        // Each entry: subunit type in the top five bits, highest subunit id below.
        const std::uint8_t type = static_cast<std::uint8_t>(entry >> 3);
        tape = tape || type == subunit_type_tape;
        camera = camera || type == subunit_type_camera;
    }
    device_type = tape ? media::ED_DEVTYPE_VCR : camera ? media::ED_DEVTYPE_CAMERA : 0;
    return S_OK;
}

}  // namespace kc::avc::vcr
