#include "platform/avc/firewire_source.h"

#include "platform/avc/dv_control.h"
#include "platform/avc/raw1394_channel.h"

namespace kc::avc {

FirewireSourceDevice::FirewireSourceDevice(UnitInfo unit) : unit_(std::move(unit)) {}

std::string FirewireSourceDevice::friendly_name() const {
    return unit_name(unit_);
}

std::string FirewireSourceDevice::device_path() const {
    return guid_text(unit_.guid);
}

GstElement* FirewireSourceDevice::create_source() {
    GstElement* src = gst_element_factory_make("dv1394src", nullptr);
    GstElement* filter = gst_element_factory_make("capsfilter", nullptr);
    if (src == nullptr || filter == nullptr) {
        GST_ERROR("cannot capture from FireWire unit %s: %s is not installed",
                  guid_text(unit_.guid).c_str(), src == nullptr ? "dv1394src" : "capsfilter");
        if (src != nullptr) {
            gst_object_unref(gst_object_ref_sink(src));
        }
        if (filter != nullptr) {
            gst_object_unref(gst_object_ref_sink(filter));
        }
        return nullptr;
    }
    // Buffers stamped with the running time from the pipeline clock: from zero at
    // the start of the run, one DV frame each.
    g_object_set(src, "guid", static_cast<guint64>(unit_.guid), "use-avc", FALSE, "do-timestamp",
                 TRUE, nullptr);
    GstCaps* caps =
        gst_caps_new_simple("video/x-dv", "systemstream", G_TYPE_BOOLEAN, TRUE, nullptr);
    g_object_set(filter, "caps", caps, nullptr);
    gst_caps_unref(caps);

    GstElement* bin = gst_bin_new(nullptr);
    gst_bin_add_many(GST_BIN(bin), src, filter, nullptr);
    gst_element_link(src, filter);
    GstPad* pad = gst_element_get_static_pad(filter, "src");
    gst_element_add_pad(bin, gst_ghost_pad_new("src", pad));
    gst_object_unref(pad);
    return bin;
}

Unknown* FirewireSourceDevice::control() {
    return static_cast<media::ExtDevice*>(
        AvcDeviceControl::create(std::make_unique<Raw1394Channel>(unit_.guid)));
}

FirewireSourceProvider::FirewireSourceProvider(Scan scan) : scan_(std::move(scan)) {}

std::vector<std::shared_ptr<gst::SourceDevice>> FirewireSourceProvider::devices() {
    std::vector<std::shared_ptr<gst::SourceDevice>> out;
    for (UnitInfo& unit : scan_()) {
        if (is_dv_unit(unit)) {
            out.push_back(std::make_shared<FirewireSourceDevice>(std::move(unit)));
        }
    }
    return out;
}

}  // namespace kc::avc
