// AV/C frames as they travel over FCP: the command types, response codes and subunit
// addresses of the AV/C general command set, and the reading of a response.
//
// A frame is a byte string: byte 0 the command type (or response code) in its low
// nibble, byte 1 the subunit address (type << 3 | id), byte 2 the opcode, then the
// operands. Pure C++, no bus access: the transport is AvcChannel.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/result.h"

namespace kc::avc {

using Frame = std::vector<std::uint8_t>;

// FCP carries at most 512 bytes in one frame.
inline constexpr std::size_t max_frame_bytes = 512;

enum class CommandType : std::uint8_t {
    control = 0x00,
    status = 0x01,
    specific_inquiry = 0x02,
    notify = 0x03,
    general_inquiry = 0x04,
};

enum class Response : std::uint8_t {
    not_implemented = 0x08,
    accepted = 0x09,
    rejected = 0x0A,
    in_transition = 0x0B,
    stable = 0x0C,  // also IMPLEMENTED, the answer to an inquiry
    changed = 0x0D,
    interim = 0x0F,
};

// Subunit addresses: type in the top five bits, id in the low three.
inline constexpr std::uint8_t subunit_unit = 0xFF;         // the unit itself
inline constexpr std::uint8_t subunit_tape = 0x20;         // tape recorder/player, id 0
inline constexpr std::uint8_t subunit_type_tape = 0x04;    // as listed by SUBUNIT INFO
inline constexpr std::uint8_t subunit_type_camera = 0x07;  // as listed by SUBUNIT INFO
inline constexpr std::uint8_t subunit_type_none = 0x1F;    // an empty SUBUNIT INFO slot

// Operand value meaning "fill this in" in a status command.
inline constexpr std::uint8_t operand_query = 0xFF;

// Failures of an exchange that reached the device, as HRESULTs that describe
// themselves (errno texts): the device refused the command in its current state, the
// answer made no sense, the device still works on it.
HRESULT hresult_rejected();
HRESULT hresult_bad_response();
HRESULT hresult_no_final_response();
// The device answered but holds no value here (blank tape: no timecode, no track).
HRESULT hresult_no_data();

// A frame of command type, subunit address, opcode and operands.
Frame command(CommandType type, std::uint8_t subunit, std::uint8_t opcode,
              std::initializer_list<std::uint8_t> operands);

// Whether a response must repeat the command's opcode. TRANSPORT STATE answers with the
// opcode of the mode the tape is in instead.
enum class OpcodeEcho { required, free };

// Checks that `response` answers `command` (same subunit, and same opcode unless told)
// and maps its response code: ACCEPTED, STABLE, IN TRANSITION and CHANGED are S_OK;
// NOT IMPLEMENTED is E_NOTIMPL; REJECTED, INTERIM and malformed answers are the
// failures above.
HRESULT check_response(std::span<const std::uint8_t> command,
                       std::span<const std::uint8_t> response,
                       OpcodeEcho echo = OpcodeEcho::required);

}  // namespace kc::avc
