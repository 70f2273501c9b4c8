#include "platform/avc/dv_control.h"

#include <algorithm>
#include <cstring>

namespace kc::avc {

AvcDeviceControl* AvcDeviceControl::create(std::unique_ptr<AvcChannel> channel) {
    return new AvcDeviceControl(std::move(channel));
}

AvcDeviceControl::AvcDeviceControl(std::unique_ptr<AvcChannel> channel)
    : channel_(std::move(channel)) {}

HRESULT AvcDeviceControl::query_interface(Iid iid, void** out) {
    if (out == nullptr) {
        return E_POINTER;
    }
    switch (iid) {
        case Iid::unknown:
        case Iid::ext_device:
            *out = static_cast<media::ExtDevice*>(this);
            break;
        case Iid::ext_transport:
            *out = static_cast<media::ExtTransport*>(this);
            break;
        case Iid::timecode_reader:
            *out = static_cast<media::TimecodeReader*>(this);
            break;
        default:
            *out = nullptr;
            return E_NOINTERFACE;
    }
    add_ref();
    return S_OK;
}

std::uint32_t AvcDeviceControl::add_ref() {
    return ++refs_;
}

std::uint32_t AvcDeviceControl::release() {
    const std::uint32_t left = --refs_;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT AvcDeviceControl::control(const Frame& command) {
    Frame response;
    const HRESULT hr = channel_->transact(command, response);
    return failed(hr) ? hr : check_response(command, response);
}

HRESULT AvcDeviceControl::transport_state(vcr::TransportState& state) {
    const Frame query = vcr::transport_state_query();
    Frame response;
    const HRESULT hr = channel_->transact(query, response);
    return failed(hr) ? hr : vcr::decode_transport_state(query, response, state);
}

HRESULT AvcDeviceControl::frame_rate(long& rate) {
    const Frame query = vcr::output_signal_mode_query();
    Frame response;
    HRESULT hr = channel_->transact(query, response);
    if (failed(hr)) {
        return hr;
    }
    hr = vcr::decode_output_signal_mode(query, response, rate);
    if (hr != E_NOTIMPL) {
        return hr;
    }
    // Some camcorders only describe the stream on their output plug.
    const Frame plug = vcr::plug_signal_format_query();
    hr = channel_->transact(plug, response);
    return failed(hr) ? hr : vcr::decode_plug_signal_format(plug, response, rate);
}

HRESULT AvcDeviceControl::get_capability(long capability, long* value, double* dbl_value) {
    if (value == nullptr) {
        return E_POINTER;
    }
    if (dbl_value != nullptr) {
        *dbl_value = 0.0;
    }
    if (capability == media::ED_DEVCAP_NORMAL_RATE) {
        return frame_rate(*value);
    }
    if (capability != media::ED_DEVCAP_DEVICE_TYPE) {
        return E_NOTIMPL;
    }
    const Frame query = vcr::subunit_info_query();
    Frame response;
    const HRESULT hr = channel_->transact(query, response);
    return failed(hr) ? hr : vcr::decode_subunit_info(query, response, *value);
}

HRESULT AvcDeviceControl::put_mode(long mode) {
    // Pause keeps a recording a recording; anything that cannot tell pauses playback.
    bool recording = false;
    if (mode == media::ED_MODE_FREEZE) {
        vcr::TransportState state;
        recording = succeeded(transport_state(state)) && vcr::is_recording(state);
    }
    const std::optional<Frame> command = vcr::mode_command(mode, recording);
    if (!command) {
        return E_INVALIDARG;
    }
    return control(*command);
}

HRESULT AvcDeviceControl::get_status(long item, long* value) {
    if (value == nullptr) {
        return E_POINTER;
    }
    if (item != media::ED_MODE && item != media::ED_MODE_PLAY) {
        return E_NOTIMPL;
    }
    vcr::TransportState state;
    const HRESULT hr = transport_state(state);
    if (failed(hr)) {
        return hr;
    }
    if (item == media::ED_MODE) {
        *value = vcr::ed_mode(state);
    } else {
        *value = vcr::is_playing(state) ? media::OATRUE : media::OAFALSE;
    }
    return S_OK;
}

HRESULT AvcDeviceControl::get_transport_basic_parameters(long param, long* length,
                                                         std::uint8_t* frame) {
    if (param != media::ED_RAW_EXT_DEV_CMD) {
        return E_NOTIMPL;
    }
    if (length == nullptr || frame == nullptr) {
        return E_POINTER;
    }
    if (*length < 1 || static_cast<std::size_t>(*length) > max_frame_bytes) {
        return E_INVALIDARG;
    }
    const std::size_t size = static_cast<std::size_t>(*length);
    const Frame command(frame, frame + size);
    Frame response;
    HRESULT hr = channel_->transact(command, response);
    if (failed(hr)) {
        return hr;
    }
    hr = check_response(command, response);
    if (failed(hr)) {
        return hr;
    }
    const std::size_t copied = std::min(size, response.size());
    std::memcpy(frame, response.data(), copied);
    *length = static_cast<long>(copied);
    return S_OK;
}

HRESULT AvcDeviceControl::get_timecode(media::TimecodeSample& sample) {
    Frame response;
    if (sample.flags == media::ED_DEVCAP_ATN_READ) {
        const Frame query = vcr::track_number_query();
        const HRESULT hr = channel_->transact(query, response);
        return failed(hr) ? hr : vcr::decode_track_number(query, response, sample.frames);
    }
    if (sample.flags != media::ED_DEVCAP_TIMECODE_READ) {
        return E_INVALIDARG;
    }
    const Frame query = vcr::time_code_query();
    HRESULT hr = channel_->transact(query, response);
    if (failed(hr)) {
        return hr;
    }
    std::uint32_t bcd = 0;
    hr = vcr::decode_time_code(query, response, bcd);
    if (failed(hr)) {
        return hr;
    }
    // The user bits are a separate question; a unit that keeps none has no flag set.
    std::uint32_t user = 0;
    const Frame group = vcr::binary_group_query();
    if (failed(channel_->transact(group, response)) ||
        failed(vcr::decode_binary_group(group, response, user))) {
        user = 0;
    }
    sample.frames = bcd;
    sample.user = user;
    return S_OK;
}

}  // namespace kc::avc
