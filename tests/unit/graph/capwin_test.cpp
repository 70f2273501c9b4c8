// The preview window: attaching to a pane, detaching, running and stopping, the pane's
// window procedure and the property frame.
#include <gtest/gtest.h>

#include <tuple>

#include "graph/capwin.h"
#include "tests/unit/graph/graph_rig.h"

namespace {
using Message = std::tuple<unsigned, WParam, LParam>;
std::vector<Message> dialog_messages;
std::vector<unsigned> pane_messages;

LResult dialog_proc(WindowHandle, unsigned message, WParam wparam, LParam lparam) {
    dialog_messages.emplace_back(message, wparam, lparam);
    return 0;
}

// The pane's own procedure before CapWin subclasses it.
LResult pane_default(WindowHandle, unsigned message, WParam, LParam) {
    pane_messages.push_back(message);
    return 77;
}

constexpr int pane_id = 101;

struct Win : ::testing::Test {
    GraphPlatform fakes;
    FakeMediaFactory& media = fakes.media;
    FakeDialogHost& host = fakes.host;
    FakeGraph& graph = media.graph;
    media::GraphBuilder* graph_builder = &media.graph;
    WindowHandle dialog = host.open(dialog_proc, 0, 100);
    WindowHandle pane = host.get_dlg_item(dialog, pane_id);
    std::unique_ptr<CapWin> win = std::make_unique<CapWin>(host);

    Win() {
        // The host's calls join the media log, so that one sequence shows the order
        // between window and graph calls.
        host.echo = [this](const std::string& call) {
            media.ledger.calls.push_back("host." + call);
        };
        dialog_messages.clear();
        pane_messages.clear();
        host.control(dialog, pane_id).client = Rect{0, 0, 320, 240};
        FakeDialogHost::win(pane)->window_proc = pane_default;
    }
    WindowProc proc_of(WindowHandle w) const { return FakeDialogHost::win(w)->window_proc; }
    void* prop_of(WindowHandle w) { return host.get_prop(w, cap_win_prop); }
};
}  // namespace

TEST_F(Win, AttachTakesTheInterfacesSubclassesThePaneAndShowsTheVideoInOrder) {
    RefBaseline baseline(media.ledger);
    win->attach(pane, graph_builder);
    EXPECT_EQ(
        media.ledger.calls,
        (Strings{"host.set_prop(101,kestrelCapWinProp)", "graph.query_interface(video_window)",
                 "graph.query_interface(media_control)", "graph.query_interface(media_event)",
                 "graph.query_interface(media_seeking)", "graph.set_notify_window(window,1028,0)",
                 "host.get_window_proc(101)", "host.set_window_proc(101)",
                 "graph.put_owner(window)", "graph.put_window_style(1107296256)",
                 "graph.set_window_position(0,0,320,240)", "graph.put_visible(-1)",
                 "host.invalidate_rect(101,all,1)", "host.update_window(101)"}));
    EXPECT_TRUE(win->attached());
    EXPECT_FALSE(win->running());
    EXPECT_FALSE(graph.is_running);
    EXPECT_EQ(graph.notify_window, pane);
    EXPECT_EQ(graph.owner, pane);
    EXPECT_EQ(graph.visible, media::OATRUE);
    EXPECT_EQ(proc_of(pane), &CapWin::pane_proc);
    EXPECT_EQ(prop_of(pane), win.get());
    EXPECT_EQ(baseline.changes(), Strings{"graph: 0 -> 4"});  // one per interface held
    EXPECT_TRUE(same_object(win->media_event(), graph_builder));
}

TEST_F(Win, EachAttachFailureRaisesItsCodeStopsThereAndDetachUndoesIt) {
    struct Row {
        const char* op;
        int code;
        const char* last_call;  // the failing call; nothing of the graph follows it
    };
    const Row rows[] = {
        {"query_interface.video_window", ERR_VIDEO_WINDOW_IF,
         "graph.query_interface(video_window)"},
        {"query_interface.media_control", ERR_MEDIA_CONTROL_IF,
         "graph.query_interface(media_control)"},
        {"query_interface.media_event", ERR_MEDIA_EVENT_IF, "graph.query_interface(media_event)"},
        {"query_interface.media_seeking", ERR_MEDIA_SEEKING_IF,
         "graph.query_interface(media_seeking)"},
        {"set_notify_window", ERR_NOTIFY_WINDOW, "graph.set_notify_window(window,1028,0)"},
        {"put_owner", ERR_PUT_OWNER, "graph.put_owner(window)"},
        {"put_window_style", ERR_PUT_WINDOW_STYLE, "graph.put_window_style(1107296256)"},
        {"put_visible", ERR_PUT_VISIBLE, "graph.put_visible(-1)"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.op);
        graph.script.clear();
        graph.fail(row.op, E_TEST1);
        RefBaseline baseline(media.ledger);
        media.ledger.calls.clear();
        EXPECT_TRUE(raises([&] { win->attach(pane, graph_builder); }, row.code, E_TEST1));
        const Strings graph_calls = media.ledger.matching("graph.");
        ASSERT_FALSE(graph_calls.empty());
        EXPECT_EQ(graph_calls.back(), row.last_call);
        EXPECT_FALSE(media.ledger.called("host.invalidate_rect(101,all,1)"));
        EXPECT_TRUE(win->attached());
        win->detach();
        EXPECT_FALSE(win->attached());
        EXPECT_EQ(proc_of(pane), &pane_default);
        EXPECT_EQ(prop_of(pane), nullptr);
        EXPECT_EQ(graph.owner, nullptr);
        EXPECT_EQ(baseline.changes(), Strings{});
    }
}

TEST_F(Win, DetachOfARunningWindowStopsHidesUnownsThenRestoresThePane) {
    RefBaseline baseline(media.ledger);
    win->attach(pane, graph_builder);
    win->run();
    media.ledger.calls.clear();
    win->detach();
    EXPECT_EQ(media.ledger.calls,
              (Strings{"graph.stop", "graph.put_visible(0)", "graph.put_owner(null)",
                       "host.set_window_proc(101)", "host.remove_prop(101,kestrelCapWinProp)"}));
    EXPECT_FALSE(win->running());
    EXPECT_FALSE(win->attached());
    EXPECT_FALSE(graph.is_running);
    EXPECT_EQ(proc_of(pane), &pane_default);
    EXPECT_EQ(prop_of(pane), nullptr);
    EXPECT_EQ(baseline.changes(), Strings{});

    // Detached already: nothing at all; attached but stopped: no stop.
    media.ledger.calls.clear();
    win->detach();
    EXPECT_EQ(media.ledger.calls, Strings{});
    win->attach(pane, graph_builder);
    media.ledger.calls.clear();
    win->detach();
    EXPECT_EQ(media.ledger.count("graph.stop"), 0u);
}

TEST_F(Win, DetachIgnoresHideAndUnownFailuresButNotAStopFailure) {
    RefBaseline baseline(media.ledger);
    win->attach(pane, graph_builder);
    win->run();
    graph.fail("stop", E_TEST2);
    EXPECT_TRUE(raises([&] { win->detach(); }, ERR_STOP_MEDIA_CONTROL, E_TEST2));
    EXPECT_TRUE(win->attached());
    EXPECT_TRUE(win->running());
    EXPECT_EQ(proc_of(pane), &CapWin::pane_proc);
    graph.script.clear();
    graph.fail("put_visible", E_TEST1);
    graph.fail("put_owner", E_TEST1);
    win->detach();
    EXPECT_FALSE(win->attached());
    EXPECT_EQ(baseline.changes(), Strings{});
}

TEST_F(Win, RunAndStopCallThePlatformOnlyOnAChangeOfState) {
    win->attach(pane, graph_builder);
    win->stop();
    EXPECT_EQ(graph.stops, 0);
    win->run();
    win->run();
    EXPECT_EQ(graph.runs, 1);
    EXPECT_TRUE(win->running());
    win->stop();
    win->stop();
    EXPECT_EQ(graph.stops, 1);
    EXPECT_FALSE(win->running());

    graph.fail("run", E_TEST1, 2);
    EXPECT_TRUE(raises([&] { win->run(); }, ERR_RUN_MEDIA_CONTROL, E_TEST1));
    EXPECT_FALSE(win->running());
    graph.fail("run", S_FALSE, 3);  // still starting: counts as running
    win->run();
    EXPECT_TRUE(win->running());
    graph.fail("stop", E_TEST2, 2);
    EXPECT_TRUE(raises([&] { win->stop(); }, ERR_STOP_MEDIA_CONTROL, E_TEST2));
    EXPECT_TRUE(win->running());
}

TEST_F(Win, PaneAnswersOnItsOwnUntilAttachedThenFollowsResizesNeverErasesAndForwardsEvents) {
    // A pane without a CapWin answers on its own.
    WindowHandle other = host.get_dlg_item(dialog, 102);
    EXPECT_EQ(CapWin::pane_proc(other, wm::size, 0, 0), 0);
    EXPECT_EQ(CapWin::pane_proc(other, wm::erase_background, 0, 0), 1);
    EXPECT_EQ(CapWin::pane_proc(other, wm::graph_event, 0, 0), 0);
    EXPECT_EQ(CapWin::pane_proc(other, wm::timer, 1, 0), 0);
    EXPECT_EQ(media.ledger.count("host.post_message"), 0u);
    EXPECT_EQ(media.ledger.count("host.call_window_proc"), 0u);
    EXPECT_EQ(media.ledger.count("graph."), 0u);
    win->attach(pane, graph_builder);
    host.control(dialog, pane_id).client = Rect{0, 0, 640, 480};
    media.ledger.calls.clear();
    EXPECT_EQ(host.send(pane, wm::size, 0, 0), 77);
    EXPECT_EQ(media.ledger.calls,
              (Strings{"graph.set_window_position(0,0,640,480)", "host.call_window_proc(101,5)"}));
    EXPECT_EQ(graph.position, (FakeGraph::Position{0, 0, 640, 480}));

    media.ledger.calls.clear();
    EXPECT_EQ(host.send(pane, wm::erase_background, 0, 0), 1);
    EXPECT_EQ(media.ledger.calls, Strings{});

    media.ledger.calls.clear();
    EXPECT_EQ(host.send(pane, wm::graph_event, 5, 6), 77);
    EXPECT_EQ(media.ledger.calls,
              (Strings{"host.get_parent(101)", "host.post_message(100,1028,0,0)",
                       "host.call_window_proc(101,1028)"}));
    dialog_messages.clear();
    host.pump();
    EXPECT_EQ(dialog_messages, (std::vector<Message>{{wm::graph_event, 0, 0}}));

    EXPECT_EQ(host.send(pane, wm::timer, 3, 0), 77);
    EXPECT_EQ(pane_messages, (std::vector<unsigned>{wm::size, wm::graph_event, wm::timer}));
}

TEST_F(Win, GraphEventsReachTheDialogWhichDrainsThemThroughTheWindow) {
    graph.host = &host;
    FakeDvFilter& camera = media.dv_camera;
    win->attach(pane, graph_builder);
    graph.queue_device_lost(camera);
    host.pump();
    EXPECT_EQ(dialog_messages, (std::vector<Message>{{wm::graph_event, 0, 0}}));
    long code = 0;
    LParam p1 = 0, p2 = 0;
    ASSERT_EQ(win->media_event()->get_event(&code, &p1, &p2, 0), S_OK);
    EXPECT_EQ(code, media::EC_DEVICE_LOST);
    EXPECT_TRUE(same_object(reinterpret_cast<Unknown*>(p1), camera.identity()));
    win->media_event()->free_event_params(code, p1, p2);
    EXPECT_NE(win->media_event()->get_event(&code, &p1, &p2, 0), S_OK);
    EXPECT_EQ(camera.refs(), 0);
}

TEST_F(Win, MovingToASecondPaneLeavesTheFirstAsItWas) {
    WindowHandle second = host.get_dlg_item(dialog, 103);
    WindowProc second_proc = proc_of(second);
    win->attach(pane, graph_builder);
    win->detach();
    win->attach(second, graph_builder);
    EXPECT_EQ(proc_of(pane), &pane_default);
    EXPECT_EQ(prop_of(pane), nullptr);
    EXPECT_EQ(proc_of(second), &CapWin::pane_proc);
    EXPECT_EQ(prop_of(second), win.get());
    EXPECT_EQ(graph.notify_window, second);
    win->detach();
    EXPECT_EQ(proc_of(second), second_proc);
}

TEST_F(Win, DestructionStopsAndLetsGoOfEverything) {
    RefBaseline baseline(media.ledger);
    win->attach(pane, graph_builder);
    win->run();
    win.reset();
    EXPECT_EQ(graph.stops, 1);
    EXPECT_EQ(proc_of(pane), &pane_default);
    EXPECT_EQ(baseline.changes(), Strings{});
}

TEST_F(Win, PropertyPagesOpenAModalFrameOfTheObject) {
    FakeFilter& decoder = media.ledger.make<FakeFilter>("DV Video Decoder");
    decoder.pages = {{1, 2, 3, {}}, {4, 5, 6, {}}};
    media::BaseFilter* object = &decoder;
    RefBaseline baseline(media.ledger);
    CapWin::show_property_pages(dialog, object, "DV Capture");
    ASSERT_EQ(media.frames.size(), 1u);
    EXPECT_EQ(media.frames[0].owner, dialog);
    EXPECT_EQ(media.frames[0].caption, "DV Capture");
    EXPECT_EQ(media.frames[0].object, decoder.identity());
    EXPECT_EQ(media.frames[0].pages, decoder.pages);
    EXPECT_EQ(baseline.changes(), Strings{});

    decoder.fail("get_pages", E_TEST1);  // ignored: a frame without pages
    CapWin::show_property_pages(dialog, object, "WDM Capture");
    ASSERT_EQ(media.frames.size(), 2u);
    EXPECT_TRUE(media.frames[1].pages.empty());

    media.fail("create_property_frame", E_TEST2);
    const auto show = [&] { CapWin::show_property_pages(dialog, object, "x"); };
    EXPECT_TRUE(raises(show, ERR_PROPERTY_FRAME, E_TEST2));
    decoder.has_property_pages = false;
    EXPECT_TRUE(raises(show, ERR_PROPERTY_PAGES_IF, E_NOINTERFACE));
    EXPECT_EQ(media.frames.size(), 3u);
    EXPECT_EQ(baseline.changes(), Strings{});
}

using WinDeathTest = Win;

TEST_F(WinDeathTest, DetachedWindowHasNothingToRunOrRead) {
    EXPECT_DEATH(win->media_event(), "Assertion failed: t != NULL");
    EXPECT_DEATH(win->run(), "t != NULL");
}
