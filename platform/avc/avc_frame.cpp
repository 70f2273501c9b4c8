#include "platform/avc/avc_frame.h"

#include <cerrno>

namespace kc::avc {

HRESULT hresult_rejected() {
    return hresult_from_errno(EBUSY);
}
HRESULT hresult_bad_response() {
    return hresult_from_errno(EPROTO);
}
HRESULT hresult_no_final_response() {
    return hresult_from_errno(ETIMEDOUT);
}
HRESULT hresult_no_data() {
    return hresult_from_errno(ENODATA);
}

Frame command(CommandType type, std::uint8_t subunit, std::uint8_t opcode,
              std::initializer_list<std::uint8_t> operands) {
    Frame frame;
    frame.reserve(3 + operands.size());
    frame.push_back(static_cast<std::uint8_t>(type));
    frame.push_back(subunit);
    frame.push_back(opcode);
    for (const std::uint8_t operand : operands) {
        frame.push_back(operand);
    }
    return frame;
}

HRESULT check_response(std::span<const std::uint8_t> command,
                       std::span<const std::uint8_t> response, OpcodeEcho echo) {
    if (response.size() < 3 || command.size() < 3) {
        return hresult_bad_response();
    }
    // FCP does not pair answers with commands; the subunit and opcode are how a
    // response is recognised as ours.
    if (response[1] != command[1] || (echo == OpcodeEcho::required && response[2] != command[2])) {
        return hresult_bad_response();
    }
    switch (static_cast<Response>(response[0] & 0x0F)) {
        case Response::accepted:
        case Response::stable:
        case Response::in_transition:
        case Response::changed:
            return S_OK;
        case Response::not_implemented:
            return E_NOTIMPL;
        case Response::rejected:
            return hresult_rejected();
        case Response::interim:
            return hresult_no_final_response();
    }
    return hresult_bad_response();
}

}  // namespace kc::avc
