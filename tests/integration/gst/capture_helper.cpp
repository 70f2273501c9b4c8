// A capture process for the tests that must end one abruptly (killed, or out of disk):
// it writes a DV tape, looped, into an AVI file through kestrelavisink, unpaced.
//
//   kc_capture_helper TAPE OUT TYPE [--loops N] [--max-part-bytes B] [--fsize-limit B]
//
// TYPE is 1 (interleaved) or 2 (through dvdemux). --loops 0 runs until killed.
// --fsize-limit caps the file size the process may write (RLIMIT_FSIZE), which the file
// system reports like a full disk. Prints "frames=N" and, on failure, "error=...".
// Exit status: 0 after EOS, 3 after an error, 2 on bad arguments.
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

#include "tests/integration/gst/gst_test_support.h"

int main(int argc, char** argv) {
    if (argc < 4) {
        std::cerr << "usage: kc_capture_helper TAPE OUT TYPE [--loops N] [--max-part-bytes B] "
                     "[--fsize-limit B]\n";
        return 2;
    }
    const std::string tape = argv[1];
    const std::string out = argv[2];
    const int type = std::atoi(argv[3]);
    long loops = 1;
    unsigned long long max_part_bytes = 1ull << 30;
    unsigned long long fsize_limit = 0;
    for (int i = 4; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--loops") {
            loops = std::atol(argv[i + 1]);
        } else if (option == "--max-part-bytes") {
            max_part_bytes = std::strtoull(argv[i + 1], nullptr, 10);
        } else if (option == "--fsize-limit") {
            fsize_limit = std::strtoull(argv[i + 1], nullptr, 10);
        } else {
            std::cerr << "unknown option " << option << "\n";
            return 2;
        }
    }
    if (fsize_limit > 0) {
        // Without this the kernel would kill the process at the limit instead of failing
        // the write, which is not what a full disk does.
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{fsize_limit, fsize_limit};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) {
            std::cerr << "setrlimit failed\n";
            return 2;
        }
    }

    std::ostringstream d;
    d << "multifilesrc location=\"" << tape
      << "\" loop=true num-buffers=" << (loops > 0 ? loops : -1)
      << " ! video/x-dv,systemstream=true ! ";
    if (type == 2) {
        d << "dvdemux name=demux demux.video ! queue ! avisink.video_0 demux.audio ! queue ! "
             "avisink.audio_0 ";
    }
    d << "kestrelavisink name=avisink location=\"" << out << "\" max-part-bytes=" << max_part_bytes;
    const kc::gst::test::RunResult r = kc::gst::test::run_pipeline(d.str(), 3600);
    std::cout << "frames=" << r.frames << "\n";
    if (!r.eos) {
        std::cout << "error=" << r.error << "\n";
        return 3;
    }
    return 0;
}
