// Filters' property pages: what each page shows of a filter's element, and how the
// changes the user made come back to it. Every filter with an element has its settings
// page, listing the element's own properties; the preview's DV decoder also has a display
// page that says in the user's terms how much of each frame it decodes.
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "platform/gst/kestrel_dv_decoder.h"
#include "platform/gst/media/media_internal.h"

namespace kc::gst {
namespace {

PropertyItem item_of(GObject* object, GParamSpec* param) {
    PropertyItem item;
    item.name = param->name;
    item.label = g_param_spec_get_nick(param);
    if (const gchar* blurb = g_param_spec_get_blurb(param)) {
        item.blurb = blurb;
    }
    item.writable = (param->flags & G_PARAM_WRITABLE) && !(param->flags & G_PARAM_CONSTRUCT_ONLY);
    GValue value = G_VALUE_INIT;
    g_value_init(&value, param->value_type);
    g_object_get_property(object, param->name, &value);
    if (G_IS_PARAM_SPEC_ENUM(param)) {
        item.kind = PropertyItem::Kind::choice;
        GEnumClass* e = G_PARAM_SPEC_ENUM(param)->enum_class;
        for (guint v = 0; v < e->n_values; ++v) {
            item.choices.emplace_back(e->values[v].value_nick);
        }
        if (GEnumValue* now = g_enum_get_value(e, g_value_get_enum(&value))) {
            item.value = now->value_nick;
        }
    } else {
        if (gchar* text = gst_value_serialize(&value)) {
            item.value = text;
            g_free(text);
        }
        if (G_IS_PARAM_SPEC_BOOLEAN(param)) {
            item.kind = PropertyItem::Kind::boolean;
        } else if (G_IS_PARAM_SPEC_INT(param)) {
            item.kind = PropertyItem::Kind::integer;
            item.minimum = G_PARAM_SPEC_INT(param)->minimum;
            item.maximum = G_PARAM_SPEC_INT(param)->maximum;
        } else if (G_IS_PARAM_SPEC_UINT(param)) {
            item.kind = PropertyItem::Kind::integer;
            item.minimum = G_PARAM_SPEC_UINT(param)->minimum;
            item.maximum = G_PARAM_SPEC_UINT(param)->maximum;
        } else if (G_IS_PARAM_SPEC_INT64(param)) {
            item.kind = PropertyItem::Kind::integer;
            item.minimum = static_cast<double>(G_PARAM_SPEC_INT64(param)->minimum);
            item.maximum = static_cast<double>(G_PARAM_SPEC_INT64(param)->maximum);
        } else if (G_IS_PARAM_SPEC_UINT64(param)) {
            item.kind = PropertyItem::Kind::integer;
            item.minimum = static_cast<double>(G_PARAM_SPEC_UINT64(param)->minimum);
            item.maximum = static_cast<double>(G_PARAM_SPEC_UINT64(param)->maximum);
        } else if (G_IS_PARAM_SPEC_DOUBLE(param)) {
            item.kind = PropertyItem::Kind::real;
            item.minimum = G_PARAM_SPEC_DOUBLE(param)->minimum;
            item.maximum = G_PARAM_SPEC_DOUBLE(param)->maximum;
        } else if (G_IS_PARAM_SPEC_FLOAT(param)) {
            item.kind = PropertyItem::Kind::real;
            item.minimum = G_PARAM_SPEC_FLOAT(param)->minimum;
            item.maximum = G_PARAM_SPEC_FLOAT(param)->maximum;
        }
    }
    g_value_unset(&value);
    return item;
}

bool plain_type(GParamSpec* param) {
    const GType type = G_TYPE_FUNDAMENTAL(param->value_type);
    return type == G_TYPE_BOOLEAN || type == G_TYPE_INT || type == G_TYPE_UINT ||
           type == G_TYPE_INT64 || type == G_TYPE_UINT64 || type == G_TYPE_DOUBLE ||
           type == G_TYPE_FLOAT || type == G_TYPE_ENUM || type == G_TYPE_FLAGS ||
           type == G_TYPE_STRING;
}

}  // namespace

std::vector<PropertyItem> element_settings(GstElement* element) {
    std::vector<PropertyItem> list;
    guint count = 0;
    GParamSpec** properties = g_object_class_list_properties(G_OBJECT_GET_CLASS(element), &count);
    for (guint i = 0; i < count; ++i) {
        GParamSpec* param = properties[i];
        const std::string name = param->name;
        if (!(param->flags & G_PARAM_READABLE) || !plain_type(param) || name == "name" ||
            name == "parent") {
            continue;
        }
        list.push_back(item_of(G_OBJECT(element), param));
    }
    g_free(properties);
    return list;
}

bool apply_element_setting(GstElement* element, const std::string& name, const std::string& value) {
    GParamSpec* param = g_object_class_find_property(G_OBJECT_GET_CLASS(element), name.c_str());
    if (param == nullptr || !plain_type(param) || !(param->flags & G_PARAM_WRITABLE) ||
        (param->flags & G_PARAM_CONSTRUCT_ONLY)) {
        return false;
    }
    gst_util_set_object_arg(G_OBJECT(element), name.c_str(), value.c_str());
    return true;
}

namespace detail {
namespace {

constexpr const char* resolution_item = "resolution";

PropertyPage display_page(GstElement* decoder) {
    PropertyItem item;
    item.name = resolution_item;
    item.label = "Display resolution";
    item.blurb = "How much of each frame the preview decodes; less costs less";
    item.kind = PropertyItem::Kind::choice;
    const auto offered = dv_decoder_resolutions(decoder);
    item.choices = offered;
    item.value = dv_decoder_resolution(decoder);
    item.writable = !offered.empty();
    return {"Display", {item}};
}

// The decoder's own settings are those of the picture decoder inside it.
GstElement* settings_element(Filter& filter) {
    if (filter.kind == Kind::decoder) {
        if (GstElement* inner = dv_decoder_picture_decoder(filter.element)) {
            return inner;
        }
    }
    return filter.element;
}

}  // namespace

HRESULT Filter::get_pages(std::vector<media::Guid>& pages) {
    pages.clear();
    if (kind == Kind::decoder) {
        pages.push_back(display_page_id);
    }
    pages.push_back(settings_page_id);
    return S_OK;
}

std::vector<PropertyPage> pages_of(Filter& filter, const std::vector<media::Guid>& ids) {
    std::vector<PropertyPage> pages;
    for (const media::Guid& id : ids) {
        if (id == display_page_id && filter.kind == Kind::decoder) {
            pages.push_back(display_page(filter.element));
        } else if (id == settings_page_id) {
            pages.push_back({"Settings", element_settings(settings_element(filter))});
        }
    }
    return pages;
}

void apply_changes(Filter& filter, const PropertyChanges& changes) {
    for (const auto& [name, value] : changes) {
        if (name == resolution_item && filter.kind == Kind::decoder) {
            set_dv_decoder_resolution(filter.element, value);
        } else {
            apply_element_setting(settings_element(filter), name, value);
        }
    }
}

}  // namespace detail
}  // namespace kc::gst
