#include "platform/win/dv_decoder_filter.h"

#include <cstdlib>
#include <vector>

#include "dv/dv_small_image.h"
#include "platform/win/push_filter.h"

namespace kc::win {
namespace {

// The system's DV video decoder's identity, which ours stands in for.
constexpr CLSID clsid_dv_video_decoder = {
    0xB1B77C00, 0xC3E4, 0x11CF, {0xAF, 0x79, 0x00, 0xAA, 0x00, 0xB6, 0x7A, 0x42}};

class DvDecoder : public PushFilter {
  public:
    DvDecoder() : PushFilter(clsid_dv_video_decoder, {L"XForm In"}, {L"XForm Out"}) {}

  protected:
    bool accept_input(std::size_t, const AM_MEDIA_TYPE& type) const override {
        return IsEqualGUID(type.majortype, MEDIATYPE_Video) &&
               IsEqualGUID(type.subtype, MEDIASUBTYPE_dvsd);
    }

    // The system from the picture height, 625-50 unless it says 480 lines.
    void input_connected(std::size_t, const AM_MEDIA_TYPE& type) override {
        system_ = dv::DvSystem::pal_625_50;
        frame_time_ = 400'000;
        if (IsEqualGUID(type.formattype, FORMAT_VideoInfo) &&
            type.cbFormat >= sizeof(VIDEOINFOHEADER)) {
            const auto* vih = reinterpret_cast<const VIDEOINFOHEADER*>(type.pbFormat);
            if (std::abs(vih->bmiHeader.biHeight) == 480) {
                system_ = dv::DvSystem::ntsc_525_60;
            }
            frame_time_ = vih->AvgTimePerFrame;
        }
    }

    bool output_type(std::size_t, AM_MEDIA_TYPE& type) override {
        const int width = dv::small_image_width(system_);
        const int height = dv::small_image_height(system_);
        set_video_type(type, MEDIASUBTYPE_RGB32, static_cast<ULONG>(width * height * 4), width,
                       height, 32, BI_RGB, frame_time_);
        return true;
    }

    // A sample that is no whole frame of the connected system is dropped.
    HRESULT receive(std::size_t, IMediaSample* sample) override {
        BYTE* data = nullptr;
        sample->GetPointer(&data);
        const std::span<const std::uint8_t> frame(
            data, static_cast<std::size_t>(sample->GetActualDataLength()));
        if (dv::system_of_frame_start(frame) != system_) {
            return S_OK;
        }
        const auto image = dv::decode_small_image(frame, system_);
        if (!image) {
            return S_OK;
        }
        const std::vector<std::uint8_t> rgb = dv::to_rgb24(*image);
        const auto w = static_cast<std::size_t>(image->width);
        const auto h = static_cast<std::size_t>(image->height);
        bgrx_.resize(w * h * 4);
        for (std::size_t y = 0; y < h; ++y) {
            const std::uint8_t* from = rgb.data() + y * w * 3;
            std::uint8_t* to = bgrx_.data() + (h - 1 - y) * w * 4;
            for (std::size_t x = 0; x < w; ++x) {
                to[4 * x] = from[3 * x + 2];
                to[4 * x + 1] = from[3 * x + 1];
                to[4 * x + 2] = from[3 * x];
                to[4 * x + 3] = 0xFF;
            }
        }
        return deliver(0, bgrx_.data(), bgrx_.size(), sample);
    }

  private:
    dv::DvSystem system_ = dv::DvSystem::pal_625_50;
    REFERENCE_TIME frame_time_ = 400'000;
    std::vector<std::uint8_t> bgrx_;
};

}  // namespace

IBaseFilter* make_dv_decoder() {
    return new DvDecoder;
}

}  // namespace kc::win
