#include "deck/vcr_control.h"

namespace kc::deck {
namespace {
// Longer than a search from one end of the longest tape to the other at the slowest speed
// anyone would set: past it the deck is taken to have failed the search.
constexpr std::int64_t seek_time_limit_ms = 10 * 60 * 1000;
}  // namespace

std::shared_ptr<VirtualVcr> make_vcr(std::shared_ptr<const TapeImage> tape,
                                     std::shared_ptr<const Clock> clock, VcrOptions options) {
    struct Holder {
        Holder(std::shared_ptr<const TapeImage> t, std::shared_ptr<const Clock> c, VcrOptions o)
            : clock(std::move(c)), vcr(std::move(t), *clock, o) {}
        std::shared_ptr<const Clock> clock;
        VirtualVcr vcr;
    };
    auto holder = std::make_shared<Holder>(std::move(tape), std::move(clock), options);
    return std::shared_ptr<VirtualVcr>(holder, &holder->vcr);
}

VcrControl* VcrControl::create(std::shared_ptr<VirtualVcr> vcr) {
    return new VcrControl(std::move(vcr));
}

HRESULT VcrControl::query_interface(Iid iid, void** out) {
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
        case Iid::dropped_frames:
            *out = static_cast<media::DroppedFrames*>(this);
            break;
        default:
            *out = nullptr;
            return E_NOINTERFACE;
    }
    add_ref();
    return S_OK;
}

std::uint32_t VcrControl::add_ref() {
    return ++refs_;
}

std::uint32_t VcrControl::release() {
    const std::uint32_t left = --refs_;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT VcrControl::get_capability(long capability, long* value, double* dbl_value) {
    if (value == nullptr) {
        return E_POINTER;
    }
    if (dbl_value != nullptr) {
        *dbl_value = 0;
    }
    if (vcr_->faults().device_lost) {
        return device_lost_error;
    }
    switch (capability) {
        case media::ED_DEVCAP_DEVICE_TYPE:
            *value = media::ED_DEVTYPE_VCR;
            return S_OK;
        case media::ED_DEVCAP_NORMAL_RATE:
            *value =
                vcr_->system() == DvSystem::pal_625_50 ? media::ED_RATE_25 : media::ED_RATE_2997;
            return S_OK;
        case media::ED_DEVCAP_TIMECODE_READ:
        case media::ED_DEVCAP_ATN_READ:
            *value = media::OATRUE;
            return S_OK;
        default:
            return E_NOTIMPL;
    }
}

HRESULT VcrControl::put_mode(long mode) {
    return vcr_->set_mode(mode);
}

HRESULT VcrControl::get_status(long item, long* value) {
    if (value == nullptr) {
        return E_POINTER;
    }
    if (item == media::ED_MODE) {
        return vcr_->get_mode(*value);
    }
    if (item == media::ED_MODE_PLAY) {
        bool playing = false;
        const HRESULT hr = vcr_->get_playing(playing);
        if (succeeded(hr)) {
            *value = playing ? media::OATRUE : media::OAFALSE;
        }
        return hr;
    }
    return E_NOTIMPL;
}

HRESULT VcrControl::get_transport_basic_parameters(long param, long* length, std::uint8_t* frame) {
    if (param != media::ED_RAW_EXT_DEV_CMD) {
        return E_NOTIMPL;
    }
    if (length == nullptr || frame == nullptr) {
        return E_POINTER;
    }
    if (*length <= 0 || *length > 512) {
        return E_INVALIDARG;
    }
    HRESULT hr = vcr_->avc_command(std::span(frame, static_cast<std::size_t>(*length)));
    if (succeeded(hr)) {
        // A deck answers the search with an INTERIM response at once and with its final
        // response when the tape is there; the call returns with the final one.
        hr = vcr_->wait_for_seek(seek_time_limit_ms);
    }
    if (hr == device_lost_error) {
        // Nothing answered on the bus.
        return hr;
    }
    if (succeeded(hr)) {
        frame[0] = avc_accepted;
    } else if (hr == E_NOTIMPL || hr == E_INVALIDARG) {
        frame[0] = avc_not_implemented;
    } else {
        frame[0] = avc_rejected;
    }
    return hr;
}

HRESULT VcrControl::get_timecode(media::TimecodeSample& sample) {
    if (sample.flags == media::ED_DEVCAP_TIMECODE_READ) {
        BcdTimecode timecode = 0;
        std::uint32_t user = 0;
        const HRESULT hr = vcr_->read_timecode(timecode, user);
        if (succeeded(hr)) {
            sample.frames = timecode;
            sample.user = user;
        }
        return hr;
    }
    if (sample.flags == media::ED_DEVCAP_ATN_READ) {
        std::int64_t track = 0;
        const HRESULT hr = vcr_->read_track(track);
        if (succeeded(hr)) {
            sample.frames = static_cast<std::uint32_t>(track);
        }
        return hr;
    }
    return E_INVALIDARG;
}

HRESULT VcrControl::get_num_dropped(long* count) {
    if (count == nullptr) {
        return E_POINTER;
    }
    *count = static_cast<long>(vcr_->counters().dropped);
    return S_OK;
}

HRESULT VcrControl::get_num_not_dropped(long* count) {
    if (count == nullptr) {
        return E_POINTER;
    }
    *count = static_cast<long>(vcr_->counters().delivered);
    return S_OK;
}

}  // namespace kc::deck
