// Numbered capture file names: one more than the highest number of any AVI file in the
// output directory, so that numbers keep rising across runs without a stored counter.
#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>

#include "app/capapp.h"

namespace {
// The number after the first blank of a file name, read as atoi reads it (leading
// white space, optional sign, digits up to the first non-digit, 0 without any), but
// saturating instead of overflowing. Nothing when the name has no blank.
bool number_after_first_blank(const std::string& name, long long& number) {
    const std::size_t blank = name.find(' ');
    if (blank == std::string::npos) {
        return false;
    }
    std::size_t i = blank + 1;
    const std::size_t n = name.size();
    while (i < n && std::isspace(static_cast<unsigned char>(name[i]))) {
        ++i;
    }
    bool negative = false;
    if (i < n && (name[i] == '+' || name[i] == '-')) {
        negative = name[i] == '-';
        ++i;
    }
    long long value = 0;
    for (; i < n && std::isdigit(static_cast<unsigned char>(name[i])); ++i) {
        value =
            std::min<long long>(value * 10 + (name[i] - '0'), static_cast<long long>(INT_MAX) + 1);
    }
    number = std::clamp<long long>(negative ? -value : value, INT_MIN, INT_MAX);
    return true;
}
}  // namespace

void CapApp::next_file_name(std::string& out) {
    // The number is shared by every scene name: "holiday 041.avi" makes the next
    // "kestrel 042.avi". A folder that cannot be listed counts as empty.
    long long next = 0;
    for (const std::string& name : platform.system.find_files(output_directory, ".avi")) {
        long long number = 0;
        if (number_after_first_blank(name, number) && number >= next) {
            next = number + 1;
        }
    }
    char digits[32];
    std::snprintf(digits, sizeof digits, "%03lld", next);
    out = output_path(scene_name + " " + digits + ".avi");
}
