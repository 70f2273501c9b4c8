#include "platform/win/stream_writer.h"

#include <string>

#include "platform/win/filter_base.h"

namespace kc::win {
namespace {

constexpr CLSID clsid_stream_writer = {
    0x6f1c4a27, 0x8d3e, 0x4b59, {0x9a, 0x61, 0x2e, 0x77, 0x0c, 0x5d, 0x13, 0xb8}};
constexpr const wchar_t* writer_pin_id = L"in";

class StreamWriter;

class NoMediaTypes final : public ItemList<IEnumMediaTypes, AM_MEDIA_TYPE> {
  public:
    NoMediaTypes() : ItemList(0, 0) {}

  private:
    HRESULT give(ULONG, AM_MEDIA_TYPE**) override { return E_UNEXPECTED; }
    IEnumMediaTypes* copy() override { return new NoMediaTypes; }
};

class WriterPin final : public ComObject<IPin, IMemInputPin, IStream> {
  public:
    explicit WriterPin(StreamWriter& filter) : filter_(filter) {}
    ~WriterPin() override { Disconnect(); }

    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // ---- IPin: an input pin taking any stream.
    HRESULT STDMETHODCALLTYPE Connect(IPin*, const AM_MEDIA_TYPE*) override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* connector,
                                                const AM_MEDIA_TYPE* type) override {
        if (connector == nullptr || type == nullptr) {
            return E_POINTER;
        }
        std::lock_guard lock(lock_);
        if (peer_ != nullptr) {
            return VFW_E_ALREADY_CONNECTED;
        }
        peer_ = connector;
        peer_->AddRef();
        type_ = *type;
        type_.pbFormat = nullptr;
        type_.cbFormat = 0;
        type_.pUnk = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Disconnect() override {
        std::lock_guard lock(lock_);
        close();
        if (peer_ == nullptr) {
            return S_FALSE;
        }
        peer_->Release();
        peer_ = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** pin) override {
        std::lock_guard lock(lock_);
        return give_reference(peer_, pin, VFW_E_NOT_CONNECTED);
    }
    HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* type) override {
        if (type == nullptr) {
            return E_POINTER;
        }
        std::lock_guard lock(lock_);
        *type = peer_ != nullptr ? type_ : AM_MEDIA_TYPE{};
        return peer_ != nullptr ? S_OK : VFW_E_NOT_CONNECTED;
    }
    HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* info) override;
    HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* direction) override {
        if (direction == nullptr) {
            return E_POINTER;
        }
        *direction = PINDIR_INPUT;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* id) override {
        return task_string(writer_pin_id, id);
    }
    HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** types) override {
        if (types == nullptr) {
            return E_POINTER;
        }
        *types = new NoMediaTypes;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin**, ULONG*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE EndOfStream() override;
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) override {
        return S_OK;
    }

    // ---- IMemInputPin: samples carry their byte offset as start time.
    HRESULT STDMETHODCALLTYPE GetAllocator(IMemAllocator**) override { return VFW_E_NO_ALLOCATOR; }
    HRESULT STDMETHODCALLTYPE NotifyAllocator(IMemAllocator*, BOOL) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetAllocatorRequirements(ALLOCATOR_PROPERTIES*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Receive(IMediaSample* sample) override {
        if (sample == nullptr) {
            return E_POINTER;
        }
        REFERENCE_TIME start = 0, stop = 0;
        BYTE* data = nullptr;
        HRESULT hr = sample->GetTime(&start, &stop);
        if (SUCCEEDED(hr)) {
            hr = sample->GetPointer(&data);
        }
        if (FAILED(hr)) {
            return hr;
        }
        std::lock_guard lock(lock_);
        LARGE_INTEGER at;
        at.QuadPart = start;
        hr = seek_to(at, FILE_BEGIN, nullptr);
        return SUCCEEDED(hr)
                   ? write(data, static_cast<ULONG>(sample->GetActualDataLength()), nullptr)
                   : hr;
    }
    HRESULT STDMETHODCALLTYPE ReceiveMultiple(IMediaSample** samples, long count,
                                              long* done) override {
        long n = 0;
        HRESULT hr = S_OK;
        while (n < count && SUCCEEDED(hr = Receive(samples[n]))) {
            ++n;
        }
        if (done != nullptr) {
            *done = n;
        }
        return hr;
    }
    HRESULT STDMETHODCALLTYPE ReceiveCanBlock() override { return S_OK; }

    // ---- IStream over the file.
    HRESULT STDMETHODCALLTYPE Read(void* data, ULONG size, ULONG* got) override {
        std::lock_guard lock(lock_);
        DWORD n = 0;
        if (file_ == INVALID_HANDLE_VALUE || !ReadFile(file_, data, size, &n, nullptr)) {
            return STG_E_READFAULT;
        }
        if (got != nullptr) {
            *got = n;
        }
        return n == size ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Write(const void* data, ULONG size, ULONG* written) override {
        std::lock_guard lock(lock_);
        return write(data, size, written);
    }
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin,
                                   ULARGE_INTEGER* position) override {
        std::lock_guard lock(lock_);
        return seek_to(move, origin, position);
    }
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) override {
        std::lock_guard lock(lock_);
        LARGE_INTEGER here{};
        LARGE_INTEGER end;
        end.QuadPart = static_cast<LONGLONG>(size.QuadPart);
        if (file_ == INVALID_HANDLE_VALUE ||
            !SetFilePointerEx(file_, LARGE_INTEGER{}, &here, FILE_CURRENT) ||
            !SetFilePointerEx(file_, end, nullptr, FILE_BEGIN) || !SetEndOfFile(file_) ||
            !SetFilePointerEx(file_, here, nullptr, FILE_BEGIN)) {
            return STG_E_MEDIUMFULL;
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override {
        std::lock_guard lock(lock_);
        return file_ != INVALID_HANDLE_VALUE && FlushFileBuffers(file_) ? S_OK : STG_E_WRITEFAULT;
    }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD) override {
        if (stat == nullptr) {
            return E_POINTER;
        }
        std::lock_guard lock(lock_);
        *stat = STATSTG{};
        stat->type = STGTY_STREAM;
        LARGE_INTEGER size{};
        if (file_ != INVALID_HANDLE_VALUE && GetFileSizeEx(file_, &size)) {
            stat->cbSize.QuadPart = static_cast<ULONGLONG>(size.QuadPart);
        }
        return S_OK;
    }
    // What a multiplexer writing a file never asks.
    HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*,
                                     ULARGE_INTEGER*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Revert() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE Clone(IStream**) override { return E_NOTIMPL; }

    // ---- From the filter
    HRESULT open(const std::wstring& path) {
        std::lock_guard lock(lock_);
        close();
        file_ = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                            FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, CREATE_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
        return file_ != INVALID_HANDLE_VALUE ? S_OK : hresult_from_win32(GetLastError());
    }
    void close() {
        if (file_ != INVALID_HANDLE_VALUE) {
            CloseHandle(file_);
            file_ = INVALID_HANDLE_VALUE;
        }
    }

  private:
    HRESULT write(const void* data, ULONG size, ULONG* written) {
        DWORD n = 0;
        if (file_ == INVALID_HANDLE_VALUE || !WriteFile(file_, data, size, &n, nullptr)) {
            return STG_E_WRITEFAULT;
        }
        if (written != nullptr) {
            *written = n;
        }
        return n == size ? S_OK : STG_E_MEDIUMFULL;
    }
    HRESULT seek_to(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) {
        LARGE_INTEGER now{};
        if (file_ == INVALID_HANDLE_VALUE || !SetFilePointerEx(file_, move, &now, origin)) {
            return STG_E_SEEKERROR;
        }
        if (position != nullptr) {
            position->QuadPart = static_cast<ULONGLONG>(now.QuadPart);
        }
        return S_OK;
    }

    StreamWriter& filter_;
    std::mutex lock_;
    IPin* peer_ = nullptr;
    AM_MEDIA_TYPE type_{};
    HANDLE file_ = INVALID_HANDLE_VALUE;
};

class StreamWriter final : public FilterBase<IFileSinkFilter, IAMFilterMiscFlags> {
  public:
    StreamWriter() : FilterBase(clsid_stream_writer, writer_pin_id, false), pin_(*this) {}

    HRESULT STDMETHODCALLTYPE Stop() override {
        std::lock_guard lock(state_lock_);
        state_ = State_Stopped;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Pause() override {
        std::lock_guard lock(state_lock_);
        if (state_ == State_Stopped) {
            const HRESULT hr = pin_.open(path_);
            if (FAILED(hr)) {
                return hr;
            }
        }
        state_ = State_Paused;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME) override {
        if (state() == State_Stopped) {
            const HRESULT hr = Pause();
            if (FAILED(hr)) {
                return hr;
            }
        }
        std::lock_guard lock(state_lock_);
        state_ = State_Running;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetFileName(LPCOLESTR name, const AM_MEDIA_TYPE*) override {
        if (name == nullptr) {
            return E_POINTER;
        }
        std::lock_guard lock(state_lock_);
        path_ = name;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetCurFile(LPOLESTR* name, AM_MEDIA_TYPE* type) override {
        if (name == nullptr) {
            return E_POINTER;
        }
        if (type != nullptr) {
            *type = AM_MEDIA_TYPE{};
        }
        std::lock_guard lock(state_lock_);
        return task_string(path_.c_str(), name);
    }
    ULONG STDMETHODCALLTYPE GetMiscFlags() override { return AM_FILTER_MISC_FLAGS_IS_RENDERER; }

    void end_of_stream() { notify(EC_COMPLETE, S_OK, reinterpret_cast<LONG_PTR>(identity())); }

  private:
    ~StreamWriter() override = default;
    IPin* pin() override { return &pin_; }

    WriterPin pin_;
    std::wstring path_;
};

ULONG WriterPin::AddRef() {
    return filter_.AddRef();
}
ULONG WriterPin::Release() {
    return filter_.Release();
}
HRESULT WriterPin::QueryPinInfo(PIN_INFO* info) {
    return pin_info(info, &filter_, PINDIR_INPUT, writer_pin_id);
}
HRESULT WriterPin::EndOfStream() {
    filter_.end_of_stream();
    return S_OK;
}

}  // namespace

HRESULT make_file_writer(IBaseFilter** writer) {
    if (writer == nullptr) {
        return E_POINTER;
    }
    HRESULT hr = CoCreateInstance(CLSID_FileWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                  reinterpret_cast<void**>(writer));
    if (FAILED(hr)) {
        *writer = nullptr;
    } else {
        IEnumPins* pins = nullptr;
        IPin* pin = nullptr;
        IStream* stream = nullptr;
        const bool streams =
            SUCCEEDED((*writer)->EnumPins(&pins)) && pins->Next(1, &pin, nullptr) == S_OK &&
            SUCCEEDED(pin->QueryInterface(IID_IStream, reinterpret_cast<void**>(&stream)));
        for (IUnknown* held : {static_cast<IUnknown*>(stream), static_cast<IUnknown*>(pin),
                               static_cast<IUnknown*>(pins)}) {
            if (held != nullptr) {
                held->Release();
            }
        }
        if (streams) {
            return S_OK;
        }
        (*writer)->Release();
    }
    *writer = new StreamWriter;
    return S_OK;
}

}  // namespace kc::win
