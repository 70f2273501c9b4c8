#include "graph/capwin.h"

#include "app/errors.h"
#include "app/globals.h"

namespace {
constexpr long video_window_style = media::WS_CHILD | media::WS_CLIPCHILDREN;
}  // namespace

CapWin::CapWin(DialogHost& host_) : host(host_) {}

CapWin::~CapWin() {
    // A graph that will not stop cannot be reported from here; the holders let go of
    // their interfaces all the same.
    try {
        detach();
    } catch (ComError* e) {
        delete e;
    }
}

void CapWin::attach(WindowHandle pane_, media::GraphBuilder* graph) {
    pane = pane_;
    host.set_prop(pane, cap_win_prop, this);
    throw_if_failed(query_interface(graph, video_window), ERR_VIDEO_WINDOW_IF);
    throw_if_failed(query_interface(graph, media_control), ERR_MEDIA_CONTROL_IF);
    throw_if_failed(query_interface(graph, media_event_), ERR_MEDIA_EVENT_IF);
    throw_if_failed(query_interface(graph, media_seeking), ERR_MEDIA_SEEKING_IF);
    // Events raised on the media layer's threads arrive as one posted message on the
    // UI thread; the pane passes it to its dialog.
    throw_if_failed(media_event_->set_notify_window(pane, wm::graph_event, 0), ERR_NOTIFY_WINDOW);
    // The pane follows its own resizes and forwards the graph's message, so it must be
    // subclassed before the video window becomes its child.
    old_proc = host.get_window_proc(pane);
    host.set_window_proc(pane, &CapWin::pane_proc);
    throw_if_failed(video_window->put_owner(pane), ERR_PUT_OWNER);
    throw_if_failed(video_window->put_window_style(video_window_style), ERR_PUT_WINDOW_STYLE);
    fit_video();
    throw_if_failed(video_window->put_visible(media::OATRUE), ERR_PUT_VISIBLE);
    host.invalidate_rect(pane, nullptr, true);
    host.update_window(pane);
}

void CapWin::detach() {
    // The graph must not render into a window that is about to lose its owner.
    if (running_) {
        throw_if_failed(media_control->stop(), ERR_STOP_MEDIA_CONTROL);
        running_ = false;
    }
    if (video_window.valid()) {
        // Failures here change nothing: the window is going away either way.
        video_window->put_visible(media::OAFALSE);
        video_window->put_owner(nullptr);
        video_window.release();
    }
    media_control.reset();
    media_event_.reset();
    media_seeking.reset();
    if (pane != nullptr) {
        if (old_proc != nullptr) {
            host.set_window_proc(pane, old_proc);
            old_proc = nullptr;
        }
        host.remove_prop(pane, cap_win_prop);
        pane = nullptr;
    }
}

void CapWin::run() {
    if (!running_) {
        // Success other than S_OK means the graph is still starting: it runs.
        throw_if_failed(media_control->run(), ERR_RUN_MEDIA_CONTROL);
        running_ = true;
    }
}

void CapWin::stop() {
    if (running_) {
        throw_if_failed(media_control->stop(), ERR_STOP_MEDIA_CONTROL);
        running_ = false;
    }
}

media::MediaEvent* CapWin::media_event() {
    return media_event_.get();
}

void CapWin::fit_video() {
    const Rect client = host.get_client_rect(pane);
    video_window->set_window_position(0, 0, client.right, client.bottom);
}

LResult CapWin::pane_proc(WindowHandle window, unsigned message, WParam wparam, LParam lparam) {
    auto* win = static_cast<CapWin*>(instance->dialogs.get_prop(window, cap_win_prop));
    if (win == nullptr) {
        // The video covers the pane; erasing it would only flicker.
        return message == wm::erase_background ? 1 : 0;
    }
    DialogHost& host = win->host;
    switch (message) {
        case wm::size:
            win->fit_video();
            break;
        case wm::erase_background:
            return 1;
        case wm::graph_event:
            // Carries nothing: the dialog drains the queue through media_event().
            host.post_message(host.get_parent(window), wm::graph_event, 0, 0);
            break;
        default:
            break;
    }
    return host.call_window_proc(win->old_proc, window, message, wparam, lparam);
}

void CapWin::show_property_pages(WindowHandle owner, Unknown* object, const std::string& caption) {
    ComPtr<media::SpecifyPropertyPages> specify;
    throw_if_failed(query_interface(object, specify), ERR_PROPERTY_PAGES_IF);
    // The frame wants the object's identity; a missing one is no reason to refuse.
    ComPtr<Unknown> identity;
    query_interface(object, identity);
    std::vector<media::Guid> pages;
    specify->get_pages(pages);
    throw_if_failed(instance->media.create_property_frame(
                        owner, caption, identity.valid() ? identity.get() : object, pages),
                    ERR_PROPERTY_FRAME);
}
