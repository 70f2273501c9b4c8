#include "platform/avc/fcp_exchange.h"

#include <gtest/gtest.h>

#include <deque>
#include <optional>
#include <vector>

namespace kc::avc {
namespace {

// A unit's registers that answer from a script: each wait gives the next scripted
// response, or (nullopt) lets the whole wait pass without one.
class ScriptedPort final : public FcpPort {
  public:
    HRESULT send(std::span<const std::uint8_t> command) override {
        sent.emplace_back(command.begin(), command.end());
        return send_result;
    }
    bool wait_response(int timeout_ms, Frame& response) override {
        waits.push_back(timeout_ms);
        if (script.empty() || !script.front()) {
            if (!script.empty()) {
                script.pop_front();
            }
            return false;
        }
        response = *script.front();
        script.pop_front();
        return true;
    }
    std::deque<std::optional<Frame>> script;
    std::vector<Frame> sent;
    std::vector<int> waits;
    HRESULT send_result = S_OK;
};

Frame answer(const Frame& to, Response code) {
    Frame r = to;
    r[0] = static_cast<std::uint8_t>(code);
    return r;
}

TEST(FcpExchange, WaitsThroughInterimForTheFinalAnswerWithinItsLimitAndResendsOnlyUnanswered) {
    // ABSOLUTE TRACK NUMBER to the tape subunit.
    const Frame seek = command(CommandType::control, subunit_tape, 0x52, {0x20, 0, 0, 0, 0});
    const FcpTimes times{.response_ms = 200, .resends = 2, .interim_ms = 5000};
    Frame response;

    // INTERIM, a stray response from another subunit, then the final answer.
    ScriptedPort searching;
    Frame stray = answer(seek, Response::accepted);
    stray[1] = subunit_unit;
    searching.script = {answer(seek, Response::interim), stray, answer(seek, Response::accepted)};
    ASSERT_EQ(fcp_exchange(searching, seek, response, times), S_OK);
    EXPECT_EQ(response, answer(seek, Response::accepted));
    EXPECT_EQ(searching.sent.size(), 1u) << "a command being worked on is not sent again";
    ASSERT_EQ(searching.waits.size(), 3u);
    EXPECT_LE(searching.waits[0], 200);
    EXPECT_GT(searching.waits[1], 200) << "the final answer may take up to the interim limit";
    EXPECT_LE(searching.waits[1], 5000);

    // INTERIM and then silence: a time-out, not the interim taken as an answer.
    ScriptedPort stuck;
    stuck.script = {answer(seek, Response::interim), std::nullopt};
    EXPECT_EQ(fcp_exchange(stuck, seek, response, times), hresult_from_errno(ETIMEDOUT));
    EXPECT_EQ(stuck.sent.size(), 1u);

    // No answer at all: sent three times in all, then a time-out; an answer to a resend
    // counts.
    ScriptedPort deaf;
    deaf.script = {std::nullopt, std::nullopt, std::nullopt};
    EXPECT_EQ(fcp_exchange(deaf, seek, response, times), hresult_from_errno(ETIMEDOUT));
    EXPECT_EQ(deaf.sent.size(), 3u);
    ScriptedPort late;
    late.script = {std::nullopt, answer(seek, Response::rejected)};
    ASSERT_EQ(fcp_exchange(late, seek, response, times), S_OK);
    EXPECT_EQ(response[0], static_cast<std::uint8_t>(Response::rejected));
    EXPECT_EQ(late.sent.size(), 2u);

    // A command that cannot be sent fails with the bus's reason at once.
    ScriptedPort unplugged;
    unplugged.send_result = hresult_from_errno(ENODEV);
    EXPECT_EQ(fcp_exchange(unplugged, seek, response, times), hresult_from_errno(ENODEV));
    EXPECT_TRUE(unplugged.waits.empty());
}

}  // namespace
}  // namespace kc::avc
