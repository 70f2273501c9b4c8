// The scene list: scenes logged with Set In point / Set Out point, their default names
// and their capture starts.
#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>

#include "app/capapp.h"
#include "app/errors.h"

namespace {
// A name of the form word-and-number ("kestrel 007", "other 9 take 2"): the number, or
// nothing. The word is a run of at most 255 non-blank characters (a longer one never
// matches), the number a decimal integer with an optional sign whose leading zeros do
// not make it octal; text after it does not matter.
bool scan_numbered_name(const std::string& name, long long& number) {
    std::size_t i = 0;
    const std::size_t n = name.size();
    auto is_space = [&](std::size_t k) {
        return std::isspace(static_cast<unsigned char>(name[k])) != 0;
    };
    while (i < n && is_space(i)) {
        ++i;
    }
    const std::size_t word_start = i;
    while (i < n && !is_space(i)) {
        ++i;
    }
    const std::size_t word_length = i - word_start;
    if (word_length == 0 || word_length > 255) {
        return false;
    }
    while (i < n && is_space(i)) {
        ++i;
    }
    bool negative = false;
    if (i < n && (name[i] == '+' || name[i] == '-')) {
        negative = name[i] == '-';
        ++i;
    }
    if (i >= n || !std::isdigit(static_cast<unsigned char>(name[i]))) {
        return false;
    }
    long long value = 0;
    for (; i < n && std::isdigit(static_cast<unsigned char>(name[i])); ++i) {
        // Saturate at the int range, as the runtime's scanner does in practice.
        value =
            std::min<long long>(value * 10 + (name[i] - '0'), static_cast<long long>(INT_MAX) + 1);
    }
    value = negative ? -value : value;
    number = std::clamp<long long>(value, INT_MIN, INT_MAX);
    return true;
}
}  // namespace

CapJob* CapApp::job_at(int index) {
    std::list<CapJob*>& jobs = *this->jobs;
    auto i = jobs.begin();
    for (int k = 0; k < index && i != jobs.end(); ++k) {
        ++i;
    }
    if (index < 0) {
        i = jobs.end();
    }
    CAP_ASSERT(i != jobs.end());
    return *i;
}

std::string CapApp::next_job_name() {
    long long max = 0;
    for (const CapJob* job : *jobs) {
        long long number = 0;
        if (scan_numbered_name(job->name, number) && number >= max) {
            max = number;
        }
    }
    char digits[32];
    std::snprintf(digits, sizeof digits, "%03lld", max + 1);
    return scene_name + " " + digits;
}

CapJob* CapApp::add_job(const Timecode& position) {
    auto* job = new CapJob;
    job->in_point = position;
    job->capture_start = position;
    job->out_point.clear();
    // Named while it is not yet in the list, so that it does not count itself.
    job->name = next_job_name();
    jobs->push_back(job);
    return job;
}

bool CapApp::set_out_point(const Timecode& position) {
    if (jobs->empty()) {
        show_message(MSG_NO_START_POINT);
        return false;
    }
    // Always the last scene, even when it already has an out point.
    jobs->back()->out_point = position;
    return true;
}

void CapApp::remove_job(CapJob* job) {
    jobs->remove(job);
    delete job;
}

void CapApp::apply_preroll() {
    for (CapJob* job : *jobs) {
        // Two's-complement: a preroll beyond the in point gives a negative track.
        job->capture_start.track = static_cast<std::int32_t>(
            static_cast<std::uint32_t>(job->in_point.track) - static_cast<std::uint32_t>(preroll));
    }
}
