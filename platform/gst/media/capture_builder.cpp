// The capture graph builder: finds the free pin a request means (the capture or the
// preview branch of a source, a new input of the multiplexer), puts an intermediate
// filter in between, adds the default renderer when no sink is named, and makes the
// multiplexer and file writer of an output file. It only decides what connects to what;
// the graph realises each connection in the pipeline.
#include <string>

#include "platform/gst/media/media_internal.h"

namespace kc::gst::detail {
namespace {

bool matches(const PinImpl& pin, MajorType type) {
    return type == MajorType::none || pin.type == type ||
           (type == MajorType::interleaved && pin.type != MajorType::audio);
}

PinImpl* free_pin(Filter& f, PinDirection d, PinCategory category, MajorType type) {
    for (auto& pin : f.pins) {
        if (pin->direction != d || pin->peer) {
            continue;
        }
        if (f.tee && d == PinDirection::output) {
            const char* wanted = category == PinCategory::preview ? "Preview" : "Capture";
            if (pin->name != wanted) {
                continue;
            }
        }
        if (d == PinDirection::input || matches(*pin, type)) {
            return pin.get();
        }
    }
    return nullptr;
}

PinImpl* mux_input(Filter& mux, MajorType type) {
    mux.add_pin(PinDirection::input, "Input " + std::to_string(mux.pins.size()), type);
    return mux.pins.back().get();
}

class Builder : public media::CaptureGraphBuilder, public Counted {
  public:
    ~Builder() override {
        if (graph)
            graph->release();
    }
    KC_COUNTED
    HRESULT query_interface(Iid iid, void** out) override {
        if (iid == Iid::unknown || iid == Iid::capture_graph_builder) {
            return give(this, out);
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT set_filtergraph(media::GraphBuilder* g) override {
        auto* impl = dynamic_cast<Graph*>(g);
        if (impl == nullptr) {
            return E_INVALIDARG;
        }
        impl->add_ref();
        if (graph)
            graph->release();
        graph = impl;
        return S_OK;
    }

    HRESULT set_output_file_name(const std::string& path, media::BaseFilter** mux_out,
                                 media::FileSink** sink_out) override {
        *mux_out = nullptr;
        if (sink_out)
            *sink_out = nullptr;
        if (graph == nullptr) {
            return E_UNEXPECTED;
        }
        if (path.empty()) {
            return E_INVALIDARG;
        }
        // The DV writer is the multiplexer and the file writer in one element; a DV
        // source in the graph picks it, anything else goes through avimux.
        bool dv = false;
        for (auto* f : graph->filters) {
            dv = dv || (f->kind == Kind::source && f->dv);
        }
        GstElement* element = dv ? make("kestrelavisink") : make("avimux");
        if (element == nullptr) {
            return E_FAIL;
        }
        auto* mux = new Filter(Kind::mux, element);
        mux->dv_writer = dv;
        mux->add_pin(PinDirection::output, "AVI Out", MajorType::interleaved);
        Filter* writer = nullptr;
        if (dv) {
            g_object_set(element, "location", path.c_str(), nullptr);
            mux->file = path;
            writer = new Filter(Kind::file_writer, nullptr);
        } else {
            GstElement* filesink = make("filesink");
            g_object_set(filesink, "location", path.c_str(), "async", FALSE, nullptr);
            writer = new Filter(Kind::file_writer, filesink);
        }
        writer->file = path;
        writer->add_pin(PinDirection::input, "in", MajorType::interleaved);
        HRESULT hr = graph->add_filter(mux, "AVI Mux");
        if (succeeded(hr)) {
            hr = graph->add_filter(writer, path);
            if (succeeded(hr)) {
                hr = graph->connect(*mux->pins[0], *writer->pins[0]);
            }
        }
        if (failed(hr)) {
            graph->remove_filter(writer);
            graph->remove_filter(mux);
            writer->release();
            mux->release();
            return hr;
        }
        *mux_out = mux;
        if (sink_out) {
            *sink_out = writer;
        } else {
            writer->release();
        }
        return S_OK;
    }

    HRESULT render_stream(PinCategory category, MajorType type, Unknown* source,
                          media::BaseFilter* intermediate, media::BaseFilter* sink) override {
        if (graph == nullptr) {
            return E_UNEXPECTED;
        }
        Filter* src = as_filter(source);
        if (src == nullptr) {
            return E_POINTER;
        }
        PinImpl* out = free_pin(*src, PinDirection::output, category, type);
        if (out == nullptr) {
            return VFW_E_NOT_FOUND;
        }
        auto* through = dynamic_cast<Filter*>(intermediate);
        if (through) {
            PinImpl* in = free_pin(*through, PinDirection::input, PinCategory::none, type);
            if (in == nullptr) {
                return VFW_E_NOT_FOUND;
            }
            HRESULT hr = graph->connect(*out, *in);
            if (failed(hr)) {
                return hr;
            }
            // The splitter's video leaves through the intermediate; its audio waits
            // for a request of its own.
            const MajorType next = through->kind == Kind::splitter ? MajorType::video : type;
            out = free_pin(*through, PinDirection::output, PinCategory::none, next);
            if (out == nullptr) {
                return VFW_E_NOT_FOUND;
            }
        }
        auto* to = dynamic_cast<Filter*>(sink);
        if (to == nullptr) {
            Filter* renderer = graph->add_renderer(out->type, out->owner.dv);
            if (renderer == nullptr) {
                return E_FAIL;
            }
            return graph->connect(*out, *renderer->pins[0]);
        }
        PinImpl* in = to->kind == Kind::mux
                          ? mux_input(*to, out->type)
                          : free_pin(*to, PinDirection::input, PinCategory::none, out->type);
        if (in == nullptr) {
            return VFW_E_NOT_FOUND;
        }
        HRESULT hr = graph->connect(*out, *in);
        if (failed(hr) && to->kind == Kind::mux) {
            to->pins.pop_back();
        }
        return hr;
    }

    HRESULT find_interface(PinCategory, MajorType, media::BaseFilter* filter, Iid iid,
                           void** out) override {
        *out = nullptr;
        if (filter == nullptr) {
            return E_POINTER;
        }
        // The filter itself answers first; else whatever its output pins lead to.
        if (succeeded(filter->query_interface(iid, out))) {
            return S_OK;
        }
        auto* f = dynamic_cast<Filter*>(filter);
        if (f) {
            for (auto& pin : f->pins) {
                if (pin->direction == PinDirection::output && pin->peer &&
                    succeeded(find_interface(PinCategory::none, MajorType::none, &pin->peer->owner,
                                             iid, out))) {
                    return S_OK;
                }
            }
        }
        return E_NOINTERFACE;
    }

  private:
    static Filter* as_filter(Unknown* u) {
        if (u == nullptr) {
            return nullptr;
        }
        void* base = nullptr;
        if (failed(u->query_interface(Iid::base_filter, &base)) || base == nullptr) {
            return nullptr;
        }
        auto* f = dynamic_cast<Filter*>(static_cast<media::BaseFilter*>(base));
        static_cast<media::BaseFilter*>(base)->release();
        return f;
    }
    Graph* graph = nullptr;
};

}  // namespace

media::CaptureGraphBuilder* make_capture_builder() {
    return new Builder;
}

}  // namespace kc::gst::detail
