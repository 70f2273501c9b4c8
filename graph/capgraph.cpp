#include "graph/capgraph.h"

#include <cstdio>
#include <unordered_map>

#include "app/errors.h"
#include "app/globals.h"

using media::DeviceCategory;
using media::MajorType;
using media::PinCategory;

namespace {
// The interface a holder carries, or null for an empty one: optional arguments of the
// builder ("through nothing", "to the default renderers").
template <class T>
T* or_null(const ComPtr<T>& holder) {
    return holder.valid() ? holder.get() : nullptr;
}

// The system device enumerator and the moniker enumerator of one category. `monikers`
// stays empty for an empty category. Both walks start afresh every time, so a device
// plugged in or out between two walks shifts the indexes; nothing is cached.
void open_category(media::MediaFactory& factory, DeviceCategory category,
                   ComPtr<media::CreateDevEnum>& dev_enum, ComPtr<media::EnumMoniker>& monikers) {
    throw_if_failed(factory.create_instance(media::Clsid::system_device_enum, Iid::create_dev_enum,
                                            dev_enum.out_void()),
                    ERR_CREATE_DEVICE_ENUM);
    // S_FALSE without an enumerator is an empty category, not a failure.
    throw_if_failed(dev_enum->create_class_enumerator(category, monikers.out(), 0),
                    ERR_CREATE_CLASS_ENUM);
}

// Takes the next moniker of the walk; false at the end or when the walk fails.
bool next_moniker(media::EnumMoniker* monikers, ComPtr<media::Moniker>& moniker) {
    return monikers->next(moniker.out()) == S_OK && moniker.valid();
}

// The builder's connection request; its failure names the graph connection.
void render(media::CaptureGraphBuilder* builder, PinCategory category, MajorType type,
            media::BaseFilter* source, media::BaseFilter* intermediate, media::BaseFilter* sink) {
    throw_if_failed(builder->render_stream(category, type, source, intermediate, sink),
                    ERR_CONNECT_GRAPH);
}
}  // namespace

std::string filter_name_of(std::uint32_t identity) {
    char name[24];
    std::snprintf(name, sizeof name, "Filter %08x", static_cast<unsigned>(identity));
    return name;
}

// Graph names must be unique per filter object, and the name carries 32 bits. An
// address folded to 32 bits could collide on a 64-bit build, so each object identity
// (its Iid::unknown pointer) gets a serial number the first time it is named. While an
// object lives its address is its own, so two live filters never share a serial; an
// address reused after a filter is gone keeps its old serial, which is harmless because
// the graph held a reference to the old filter until it was removed. Only the UI
// thread names filters, so the table needs no lock.
std::string filter_graph_name(media::BaseFilter* filter) {
    static std::unordered_map<const void*, std::uint32_t> serials;
    void* identity = nullptr;
    const void* key = filter;
    if (succeeded(filter->query_interface(Iid::unknown, &identity)) && identity != nullptr) {
        key = identity;
        static_cast<Unknown*>(identity)->release();
    }
    auto [it, added] = serials.try_emplace(key, static_cast<std::uint32_t>(serials.size() + 1));
    return filter_name_of(it->second);
}

CapGraph::CapGraph(media::MediaFactory& factory_) : factory(factory_) {
    throw_if_failed(
        factory.create_instance(media::Clsid::filter_graph, Iid::graph_builder, graph.out_void()),
        ERR_CREATE_GRAPH);
    throw_if_failed(factory.create_instance(media::Clsid::capture_graph_builder,
                                            Iid::capture_graph_builder, builder.out_void()),
                    ERR_CREATE_CAPTURE_BUILDER);
    throw_if_failed(builder->set_filtergraph(graph.get()), ERR_ATTACH_GRAPH);
}

void CapGraph::enum_devices(DeviceCategory category, EnumCallback callback, void* context) {
    ComPtr<media::CreateDevEnum> dev_enum;
    ComPtr<media::EnumMoniker> monikers;
    open_category(factory, category, dev_enum, monikers);
    if (!monikers.valid()) {
        return;
    }
    for (;;) {
        ComPtr<media::Moniker> moniker;
        if (!next_moniker(monikers.get(), moniker)) {
            break;
        }
        const bool go_on = callback(moniker.get(), context);
        moniker.release();
        if (!go_on) {
            break;
        }
    }
}

bool add_device_name(media::Moniker* moniker, void* combo) {
    ComPtr<media::PropertyBag> bag;
    throw_if_failed(moniker->bind_to_storage(bag.out()), ERR_BIND_PROPERTY_SET);
    std::string name;
    throw_if_failed(bag->read("FriendlyName", name), ERR_MISSING_PROPERTY);
    instance->dialogs.combo_add_string(static_cast<WindowHandle>(combo), name);
    return true;
}

ComPtr<media::BaseFilter> CapGraph::get_filter(DeviceCategory category, int index) {
    ComPtr<media::CreateDevEnum> dev_enum;
    ComPtr<media::EnumMoniker> monikers;
    open_category(factory, category, dev_enum, monikers);
    ComPtr<media::BaseFilter> filter;
    if (monikers.valid()) {
        for (int position = 0;; ++position) {
            ComPtr<media::Moniker> moniker;
            if (!next_moniker(monikers.get(), moniker)) {
                break;
            }
            if (position == index) {
                throw_if_failed(moniker->bind_to_object(Iid::base_filter, filter.out_void()),
                                ERR_NOT_A_FILTER);
                break;
            }
        }
    }
    if (!filter.valid()) {
        // No failing call to report: the stored index simply has no device (any more).
        throw new ComError(S_OK, ERR_INDEX_NOT_IN_ENUM);
    }
    return filter;
}

void CapGraph::add_filter(media::BaseFilter* filter) {
    throw_if_failed(graph->add_filter(filter, filter_graph_name(filter)), ERR_ADD_FILTER);
}

void CapGraph::set_output_file(const std::string& path) {
    CAP_ASSERT(!avimux.valid());
    CAP_ASSERT(!avisink.valid());
    throw_if_failed(builder->set_output_file_name(path, avimux.out(), avisink.out()),
                    ERR_SET_OUTPUT_FILE);
}

void CapGraph::build_dv_type1_capture() {
    CAP_ASSERT(source.valid());
    CAP_ASSERT(avimux.valid());
    // The interleaved DV stream goes into the file as it comes; the capture request
    // comes first so that the builder splits the source's one pin for the preview.
    render(builder.get(), PinCategory::capture, MajorType::interleaved, source.get(), nullptr,
           avimux.get());
    render(builder.get(), PinCategory::preview, MajorType::interleaved, source.get(), nullptr,
           nullptr);
}

void CapGraph::build_dv_type2_capture() {
    ComPtr<media::BaseFilter> splitter;
    throw_if_failed(
        factory.create_instance(media::Clsid::dv_splitter, Iid::base_filter, splitter.out_void()),
        ERR_CREATE_DV_SPLITTER);
    throw_if_failed(graph->add_filter(splitter.get(), "DV Splitter"), ERR_ADD_FILTER);
    // Separate video and audio streams are written side by side, not interleaved.
    set_interleaving(media::INTERLEAVE_NONE);
    // Source through the splitter's video output into the multiplexer, then the
    // splitter's remaining (audio) output, then the preview.
    render(builder.get(), PinCategory::capture, MajorType::interleaved, source.get(),
           splitter.get(), avimux.get());
    render(builder.get(), PinCategory::none, MajorType::none, splitter.get(), nullptr,
           avimux.get());
    render(builder.get(), PinCategory::preview, MajorType::interleaved, source.get(), nullptr,
           nullptr);
    // The graph keeps the splitter; our reference goes with `splitter`.
}

void CapGraph::build_wdm_capture(int video_codec, int audio_codec) {
    CAP_ASSERT(source.valid());
    CAP_ASSERT(audio_source.valid());
    CAP_ASSERT(avimux.valid());
    // Codec settings count "No compression" as 0, so entry n of a category is n + 1.
    // The audio compressor is fetched first, and both before any connection, so that a
    // stale codec index fails before anything is connected.
    ComPtr<media::BaseFilter> audio_compressor;
    if (audio_codec > 0) {
        audio_compressor = get_filter(DeviceCategory::audio_compressor, audio_codec - 1);
        add_filter(audio_compressor.get());
    }
    ComPtr<media::BaseFilter> video_compressor;
    if (video_codec > 0) {
        video_compressor = get_filter(DeviceCategory::video_compressor, video_codec - 1);
        add_filter(video_compressor.get());
    }
    render(builder.get(), PinCategory::capture, MajorType::video, source.get(),
           or_null(video_compressor), avimux.get());
    render(builder.get(), PinCategory::capture, MajorType::audio, audio_source.get(),
           or_null(audio_compressor), avimux.get());
    render(builder.get(), PinCategory::preview, MajorType::video, source.get(), nullptr, nullptr);
    render(builder.get(), PinCategory::preview, MajorType::audio, audio_source.get(), nullptr,
           nullptr);
    // The compressors stay in the graph until teardown finds them downstream.
}

void CapGraph::build_dv_preview() {
    CAP_ASSERT(source.valid());
    render(builder.get(), PinCategory::preview, MajorType::interleaved, source.get(), nullptr,
           nullptr);
}

void CapGraph::build_wdm_preview() {
    CAP_ASSERT(source.valid());
    CAP_ASSERT(audio_source.valid());
    render(builder.get(), PinCategory::preview, MajorType::video, source.get(), nullptr, nullptr);
    render(builder.get(), PinCategory::preview, MajorType::audio, audio_source.get(), nullptr,
           nullptr);
}

void CapGraph::set_interleaving(int mode) {
    ComPtr<media::ConfigInterleaving> interleaving;
    throw_if_failed(query_interface(avimux.get(), interleaving), ERR_INTERLEAVING_IF);
    // A multiplexer that refuses the mode still writes a valid file; nothing to report.
    interleaving->put_mode(mode);
}

void CapGraph::remove_downstream(media::BaseFilter* filter) {
    ComPtr<media::EnumPins> pins;
    throw_if_failed(filter->enum_pins(pins.out()), ERR_ENUM_PINS);
    pins->reset();
    for (;;) {
        ComPtr<media::Pin> pin;
        const HRESULT hr = pins->next(pin.out());
        if (failed(hr) || !pin.valid()) {
            break;
        }
        ComPtr<media::Pin> peer;
        if (failed(pin->connected_to(peer.out())) || !peer.valid()) {
            continue;  // not connected
        }
        media::PinInfo info;
        const HRESULT queried = peer->query_pin_info(info);
        ComPtr<media::BaseFilter> peer_filter(info.filter);
        throw_if_failed(queried, ERR_QUERY_PIN);
        // A peer that is an output pin leads upstream: not ours to remove.
        if (info.direction != media::PinDirection::input) {
            continue;
        }
        // Depth first: what hangs off the peer goes before the peer itself, and each
        // link is broken at both ends, since the graph disconnects one pin per call.
        remove_downstream(peer_filter.get());
        graph->disconnect(peer.get());
        graph->disconnect(pin.get());
        if (!source.valid() || peer_filter.get() != source.get()) {
            graph->remove_filter(peer_filter.get());
        }
    }
}

void CapGraph::teardown() {
    remove_downstream(source.get());
    if (audio_source.valid()) {
        remove_downstream(audio_source.get());
        graph->remove_filter(audio_source.get());
        audio_source.release();
    }
    // Unconnected leftovers (a multiplexer whose capture request failed) stay in the
    // graph; only our references go.
    avimux.reset();
    avisink.reset();
}
