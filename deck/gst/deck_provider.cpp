#include "deck/gst/deck_provider.h"

#include <cstdlib>
#include <system_error>

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

    std::string friendly_name() const override { return "Virtual DV deck (" + label_ + ")"; }
    std::string device_path() const override { return "kestrel-virtual-deck:" + label_; }
    GstElement* create_source() override { return make_deck_source(vcr_); }
    Unknown* control() override { return static_cast<media::ExtDevice*>(VcrControl::create(vcr_)); }

  private:
    std::shared_ptr<VirtualVcr> vcr_;
    std::string label_;
};

class DeckProvider final : public gst::SourceProvider {
  public:
    explicit DeckProvider(std::shared_ptr<gst::SourceDevice> device) : device_(std::move(device)) {}
    std::vector<std::shared_ptr<gst::SourceDevice>> devices() override { return {device_}; }

  private:
    std::shared_ptr<gst::SourceDevice> device_;
};

std::string label_of(const std::string& value) {
    if (value == "demo" || value == "demo-ntsc") {
        return value;
    }
    return std::filesystem::path(value).filename().string();
}

}  // namespace

bool register_virtual_deck(std::string& error) {
    const char* value = std::getenv("KESTREL_VIRTUAL_DECK");
    if (value == nullptr || *value == '\0' || registered()) {
        return true;
    }
    const char* unpaced = std::getenv("KESTREL_VIRTUAL_DECK_UNPACED");
    const bool fast = unpaced != nullptr && std::string(unpaced) == "1";
    auto vcr = open_virtual_deck(value, fast, error);
    if (!vcr) {
        return false;
    }
    registered() = vcr;
    gst::add_source_provider(
        std::make_shared<DeckProvider>(std::make_shared<DeckDevice>(vcr, label_of(value))));
    return true;
}

std::shared_ptr<VirtualVcr> registered_virtual_deck() {
    return registered();
}

}  // namespace kc::deck
