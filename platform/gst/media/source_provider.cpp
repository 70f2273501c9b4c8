#include "platform/gst/source_provider.h"

namespace kc::gst {

namespace {
std::vector<std::shared_ptr<SourceProvider>>& providers() {
    static std::vector<std::shared_ptr<SourceProvider>> list;
    return list;
}
}  // namespace

void add_source_provider(std::shared_ptr<SourceProvider> provider) {
    if (provider) {
        providers().push_back(std::move(provider));
    }
}

const std::vector<std::shared_ptr<SourceProvider>>& source_providers() {
    return providers();
}

}  // namespace kc::gst
