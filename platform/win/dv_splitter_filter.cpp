#include "platform/win/dv_splitter_filter.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "dv/dv_audio.h"
#include "platform/win/push_filter.h"

namespace kc::win {
namespace {

constexpr std::size_t video_output = 0;
constexpr std::size_t audio_output = 1;

// The four data bytes of a DVINFO pack word (PC1 in the low byte) behind its header.
std::array<std::uint8_t, 5> pack_of(std::uint8_t header, DWORD data) {
    return {header, static_cast<std::uint8_t>(data), static_cast<std::uint8_t>(data >> 8),
            static_cast<std::uint8_t>(data >> 16), static_cast<std::uint8_t>(data >> 24)};
}

class DvSplitter : public PushFilter {
  public:
    DvSplitter() : PushFilter(CLSID_DVSplitter, {L"Input"}, {L"DVVidOut0", L"AudOut00"}) {}

  protected:
    // DV frames come as an interleaved stream, or as video where a source offers that
    // first (the virtual deck does, for a multiplexer that takes no interleaved stream):
    // the same frames either way.
    bool accept_input(std::size_t, const AM_MEDIA_TYPE& type) const override {
        return IsEqualGUID(type.subtype, MEDIASUBTYPE_dvsd) &&
               (IsEqualGUID(type.majortype, MEDIATYPE_Interleaved) ||
                IsEqualGUID(type.majortype, MEDIATYPE_Video));
    }

    // The system from the VAUX source pack (50/60 flag, bit 5 of PC3) and the sound from
    // the AAUX source pack of the input's DVINFO. Frames typed as video have no DVINFO:
    // the system then follows the picture's height, and the sound is taken to be DV's
    // usual 48 kHz.
    void input_connected(std::size_t, const AM_MEDIA_TYPE& type) override {
        system_ = dv::DvSystem::pal_625_50;
        audio_ = dv::AudioFormat{};
        if (IsEqualGUID(type.formattype, FORMAT_VideoInfo) &&
            type.cbFormat >= sizeof(VIDEOINFOHEADER)) {
            const auto* video = reinterpret_cast<const VIDEOINFOHEADER*>(type.pbFormat);
            if (std::abs(video->bmiHeader.biHeight) == 480) {
                system_ = dv::DvSystem::ntsc_525_60;
            }
        }
        if (!IsEqualGUID(type.formattype, FORMAT_DvInfo) || type.cbFormat < sizeof(DVINFO)) {
            return;
        }
        const auto* info = reinterpret_cast<const DVINFO*>(type.pbFormat);
        if ((info->dwDVVAuxSrc & 0x00200000) == 0) {
            system_ = dv::DvSystem::ntsc_525_60;
        }
        const auto pack = pack_of(dv::pack_aaux_source, info->dwDVAAuxSrc);
        if (const auto format = dv::audio_format_of_pack(pack, system_)) {
            audio_ = *format;
        }
    }

    bool output_type(std::size_t output, AM_MEDIA_TYPE& type) override {
        if (output == video_output) {
            const dv::FrameRate rate = dv::frame_rate(system_);
            set_video_type(type, MEDIASUBTYPE_dvsd, static_cast<ULONG>(dv::frame_bytes(system_)),
                           720, system_ == dv::DvSystem::pal_625_50 ? 576 : 480, 24,
                           MAKEFOURCC('d', 'v', 's', 'd'), 10'000'000 * rate.den / rate.num);
            return true;
        }
        type.bFixedSizeSamples = TRUE;
        type.majortype = MEDIATYPE_Audio;
        type.subtype = MEDIASUBTYPE_PCM;
        // The most samples a frame may carry at this rate, two channels of two bytes.
        type.lSampleSize =
            static_cast<ULONG>(dv::max_audio_samples(system_, audio_.sample_rate) * 4);
        auto* wave = new_format<WAVEFORMATEX>(type, FORMAT_WaveFormatEx);
        wave->wFormatTag = WAVE_FORMAT_PCM;
        wave->nChannels = 2;
        wave->nSamplesPerSec = static_cast<DWORD>(audio_.sample_rate);
        wave->wBitsPerSample = 16;
        wave->nBlockAlign = 4;
        wave->nAvgBytesPerSec = wave->nSamplesPerSec * 4;
        return true;
    }

    // A frame that is not a whole DV frame of the connected system passes as video only:
    // its sound cannot be found. Nor does sound at another rate than the output's pass:
    // it would play at the wrong speed.
    HRESULT receive(std::size_t, IMediaSample* sample) override {
        BYTE* data = nullptr;
        sample->GetPointer(&data);
        const auto size = static_cast<std::size_t>(sample->GetActualDataLength());
        HRESULT hr = deliver(video_output, data, size, sample);
        if (FAILED(hr)) {
            return hr;
        }
        const std::span<const std::uint8_t> frame(data, size);
        if (dv::system_of_frame_start(frame) != system_) {
            return hr;
        }
        if (const auto format = dv::read_audio(frame, system_, pcm_);
            format && format->sample_rate == audio_.sample_rate) {
            hr = deliver(audio_output, pcm_.data(), pcm_.size() * sizeof(std::int16_t), sample);
        }
        return hr;
    }

  private:
    dv::DvSystem system_ = dv::DvSystem::pal_625_50;
    dv::AudioFormat audio_;
    std::vector<std::int16_t> pcm_;
};

}  // namespace

IBaseFilter* make_dv_splitter() {
    return new DvSplitter;
}

}  // namespace kc::win
