#include "platform/win/avi_writer_filter.h"

#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>

#include "platform/gst/avi/dv_avi_writer.h"
#include "platform/win/filter_base.h"
#include "platform/win/push_filter.h"

namespace kc::win {
namespace {

constexpr std::size_t dv_input = 0;
constexpr std::size_t sound_input = 1;

// Ours: a registry that has the system's multiplexer keeps them apart.
constexpr CLSID avi_writer_clsid = {
    0xc8f27597, 0x34dd, 0x40ce, {0x92, 0xed, 0xa9, 0xa8, 0x97, 0x63, 0x94, 0x73}};

bool is_sound(const AM_MEDIA_TYPE& type) {
    if (!IsEqualGUID(type.majortype, MEDIATYPE_Audio) ||
        !IsEqualGUID(type.subtype, MEDIASUBTYPE_PCM) ||
        !IsEqualGUID(type.formattype, FORMAT_WaveFormatEx) ||
        type.cbFormat < sizeof(WAVEFORMATEX)) {
        return false;
    }
    const auto* wave = reinterpret_cast<const WAVEFORMATEX*>(type.pbFormat);
    return wave->wBitsPerSample == 16;
}

class AviWriter final : public PushFilter,
                        public IFileSinkFilter,
                        public IConfigInterleaving,
                        public IAMFilterMiscFlags {
  public:
    AviWriter() : PushFilter(avi_writer_clsid, {L"Input 01", L"Input 02"}, {}) {}

    // The interfaces beyond the filter's, answered for the same object.
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (out != nullptr &&
            (IsEqualIID(iid, IID_IFileSinkFilter) || IsEqualIID(iid, IID_IConfigInterleaving) ||
             IsEqualIID(iid, IID_IAMFilterMiscFlags))) {
            if (IsEqualIID(iid, IID_IFileSinkFilter)) {
                *out = static_cast<IFileSinkFilter*>(this);
            } else if (IsEqualIID(iid, IID_IConfigInterleaving)) {
                *out = static_cast<IConfigInterleaving*>(this);
            } else {
                *out = static_cast<IAMFilterMiscFlags*>(this);
            }
            AddRef();
            return S_OK;
        }
        return PushFilter::QueryInterface(iid, out);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return PushFilter::AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return PushFilter::Release(); }

    // IFileSinkFilter
    HRESULT STDMETHODCALLTYPE SetFileName(LPCOLESTR name, const AM_MEDIA_TYPE*) override {
        if (name == nullptr) {
            return E_POINTER;
        }
        std::lock_guard lock(lock_);
        path_ = name;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetCurFile(LPOLESTR* name, AM_MEDIA_TYPE* type) override {
        std::lock_guard lock(lock_);
        if (type != nullptr) {
            *type = AM_MEDIA_TYPE{};
            type->majortype = MEDIATYPE_Stream;
            type->subtype = MEDIASUBTYPE_Avi;
        }
        return task_string(path_.c_str(), name);
    }

    // IConfigInterleaving: the writer lays the file down as it is given.
    HRESULT STDMETHODCALLTYPE put_Mode(InterleavingMode mode) override {
        mode_ = mode;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Mode(InterleavingMode* mode) override {
        *mode = mode_;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_Interleaving(const REFERENCE_TIME*,
                                               const REFERENCE_TIME*) override {
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Interleaving(REFERENCE_TIME* leaving,
                                               REFERENCE_TIME* preroll) override {
        *leaving = 10'000'000;
        *preroll = 0;
        return S_OK;
    }

    // IAMFilterMiscFlags: the graph waits for this filter's EC_COMPLETE.
    ULONG STDMETHODCALLTYPE GetMiscFlags() override { return AM_FILTER_MISC_FLAGS_IS_RENDERER; }

  protected:
    bool accept_input(std::size_t input, const AM_MEDIA_TYPE& type) const override {
        if (input == sound_input) {
            return is_sound(type);
        }
        return IsEqualGUID(type.subtype, MEDIASUBTYPE_dvsd) &&
               (IsEqualGUID(type.majortype, MEDIATYPE_Interleaved) ||
                IsEqualGUID(type.majortype, MEDIATYPE_Video));
    }
    void input_connected(std::size_t, const AM_MEDIA_TYPE&) override {}
    bool output_type(std::size_t, AM_MEDIA_TYPE&) override { return false; }

    // The file is made as the graph leaves the stopped state, when the inputs say which
    // layout it has.
    HRESULT started() override {
        std::lock_guard lock(lock_);
        ended_[dv_input] = ended_[sound_input] = false;
        completed_ = false;
        std::error_code error;
        auto output = avi::open_file_output(std::filesystem::path(path_), error);
        if (!output) {
            return HRESULT_FROM_WIN32(static_cast<DWORD>(error.value()));
        }
        avi::AviWriterOptions options;
        // Separate streams when sound comes on its own or they were asked for (a type 2
        // capture asks before it connects); else the camera's stream as it is, even when
        // a source typed its frames as video for a multiplexer that takes no other.
        const bool separate = input_is_connected(sound_input) || mode_ == INTERLEAVE_NONE;
        options.layout =
            separate ? avi::AviLayout::type2_separate : avi::AviLayout::type1_interleaved;
        options.with_audio = input_is_connected(sound_input);
        writer_ = std::make_unique<avi::DvAviWriter>(std::move(output), options);
        if (options.with_audio) {
            const auto* wave =
                reinterpret_cast<const WAVEFORMATEX*>(input_type(sound_input).pbFormat);
            avi::PcmFormat format;
            format.sample_rate = wave->nSamplesPerSec;
            format.channels = wave->nChannels;
            writer_->set_audio_format(format);
        }
        return S_OK;
    }
    void stopped() override {
        std::lock_guard lock(lock_);
        finish();
    }

    HRESULT receive(std::size_t input, IMediaSample* sample) override {
        BYTE* data = nullptr;
        if (FAILED(sample->GetPointer(&data))) {
            return E_POINTER;
        }
        const avi::Bytes bytes(data, static_cast<std::size_t>(sample->GetActualDataLength()));
        std::lock_guard lock(lock_);
        if (!writer_) {
            return VFW_E_WRONG_STATE;
        }
        const std::error_code error =
            input == dv_input ? writer_->write_video(bytes) : writer_->write_audio(bytes);
        if (error) {
            // A full disk or a failing file: the capture stops where the file ends whole.
            notify(EC_ERRORABORT, E_FAIL, 0);
            return E_FAIL;
        }
        return S_OK;
    }

    // Once every connected input has ended, the file is finished and the graph told.
    void end_of_stream(std::size_t input) override {
        std::lock_guard lock(lock_);
        ended_[input] = true;
        for (std::size_t i : {dv_input, sound_input}) {
            if (input_is_connected(i) && !ended_[i]) {
                return;
            }
        }
        finish();
        if (!completed_) {
            completed_ = true;
            notify(EC_COMPLETE, S_OK, reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(this)));
        }
    }

  private:
    void finish() {
        if (writer_) {
            writer_->close();
            writer_.reset();
        }
    }

    std::mutex lock_;
    std::wstring path_;
    std::atomic<InterleavingMode> mode_{INTERLEAVE_CAPTURE};
    std::unique_ptr<avi::DvAviWriter> writer_;
    bool ended_[2] = {false, false};
    bool completed_ = false;
};

}  // namespace

IBaseFilter* make_avi_writer() {
    return new AviWriter;
}

}  // namespace kc::win
