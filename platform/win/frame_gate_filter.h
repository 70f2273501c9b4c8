// The frame gate of a DV capture branch as a DirectShow filter, placed by the media layer
// between the capture pin and the multiplexer (type 1) or the DV splitter (type 2, so that
// a scene's picture and sound leave it together): whole interleaved DV frames in, the
// frames that belong in this branch's file out, in order, stamped one frame period apart
// from the start of the run. What it holds back, carries to the next file, counts and
// logs is the FrameGate's (platform/capture), as on every host.
//
// It is a plain in-place filter of DirectShow, so it sits in front of the system's DV
// driver and multiplexer as well as in front of the virtual deck and our writer.
//
// It answers IAMDroppedFrames with the counts of the file behind it (the source's own
// losses included, read from the first IAMDroppedFrames upstream), and IKcFrameGate.
// The log is created as the filter leaves the stopped state and closed when it stops
// again: the graph stops the multiplexer first, so the file is complete by then.
#pragma once

#include <memory>
#include <string>

#include "platform/capture/frame_gate.h"
#include "platform/win/win32.h"

namespace kc::win {

// What the media layer asks of a gate in a capture graph, any thread.
struct IKcFrameGate : public IUnknown {
    // The capture decided the recording changed: see FrameGate::split.
    virtual HRESULT STDMETHODCALLTYPE SplitAtBreak() = 0;
    // The capture is about to stop: what the gate holds goes into the file while the
    // multiplexer still takes frames (a graph that stops sends no end of stream), or after
    // a split to the next file. Frames that come after it are not written.
    virtual HRESULT STDMETHODCALLTYPE EndStream() = 0;
    // Whether a recording break in the stream waits for a split: see
    // FrameGate::holds_break.
    virtual HRESULT STDMETHODCALLTYPE GetBreakHeld(BOOL* held) = 0;
};
extern const IID IID_IKcFrameGate;

// A gate for the capture file `file`, writing its log at `log_path` (none when empty) and
// naming `source` in it; `carry` links the files of one capture (may be null). One
// reference, the caller's.
IBaseFilter* make_frame_gate(std::shared_ptr<capture::Carry> carry, const std::string& file,
                             const std::string& log_path, const std::string& source);

}  // namespace kc::win
