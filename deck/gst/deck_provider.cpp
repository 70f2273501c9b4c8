#include "deck/gst/deck_provider.h"

#include <mutex>

#include "deck/deck_setup.h"
#include "deck/gst/deck_source.h"
#include "deck/vcr_control.h"
#include "platform/gst/source_provider.h"

namespace kc::deck {
namespace {

std::shared_ptr<VirtualVcr>& registered() {
    static std::shared_ptr<VirtualVcr> vcr;
    return vcr;
}

class DeckDevice final : public gst::SourceDevice {
  public:
    DeckDevice(std::shared_ptr<VirtualVcr> vcr, std::string label)
        : vcr_(std::move(vcr)), label_(std::move(label)) {}

    std::string friendly_name() const override { return deck_friendly_name(label()); }
    std::string device_path() const override { return "kestrel-virtual-deck:" + label(); }
    GstElement* create_source() override { return make_deck_source(vcr()); }
    Unknown* control() override {
        return static_cast<media::ExtDevice*>(VcrControl::create(vcr()));
    }

    std::shared_ptr<VirtualVcr> vcr() {
        std::lock_guard lock(lock_);
        return vcr_;
    }
    void insert(std::shared_ptr<VirtualVcr> vcr, std::string label) {
        std::lock_guard lock(lock_);
        vcr_ = std::move(vcr);
        label_ = std::move(label);
    }

  private:
    std::string label() const {
        std::lock_guard lock(lock_);
        return label_;
    }
    mutable std::mutex lock_;
    std::shared_ptr<VirtualVcr> vcr_;
    std::string label_;
};

std::shared_ptr<DeckDevice>& registered_device() {
    static std::shared_ptr<DeckDevice> device;
    return device;
}

class DeckProvider final : public gst::SourceProvider {
  public:
    explicit DeckProvider(std::shared_ptr<gst::SourceDevice> device) : device_(std::move(device)) {}
    std::vector<std::shared_ptr<gst::SourceDevice>> devices() override { return {device_}; }

  private:
    std::shared_ptr<gst::SourceDevice> device_;
};

}  // namespace

bool register_virtual_deck(std::string& error) {
    const auto request = requested_deck();
    if (!request || registered()) {
        return true;
    }
    auto vcr = open_virtual_deck(request->value, request->unpaced, error);
    if (!vcr) {
        return false;
    }
    vcr->set_faults(request->faults);
    registered() = vcr;
    registered_device() = std::make_shared<DeckDevice>(vcr, deck_label(request->value));
    gst::add_source_provider(std::make_shared<DeckProvider>(registered_device()));
    return true;
}

std::shared_ptr<VirtualVcr> registered_virtual_deck() {
    return registered();
}

void insert_tape(std::shared_ptr<VirtualVcr> vcr, const std::string& value) {
    if (registered_device()) {
        registered() = vcr;
        registered_device()->insert(std::move(vcr), deck_label(value));
    }
}

}  // namespace kc::deck
