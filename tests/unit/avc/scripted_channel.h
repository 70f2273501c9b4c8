// An AvcChannel that answers from a script and keeps every command it was given, for
// driving AvcDeviceControl without a bus.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <vector>

#include "platform/avc/avc_channel.h"

namespace kc::avc::test {

struct ChannelLog {
    struct Answer {
        HRESULT hr = S_OK;
        Frame response;
    };
    std::deque<Answer> script;
    std::vector<Frame> sent;
};

class ScriptedChannel final : public AvcChannel {
  public:
    explicit ScriptedChannel(std::shared_ptr<ChannelLog> log) : log_(std::move(log)) {}

    HRESULT transact(std::span<const std::uint8_t> command, Frame& response) override {
        log_->sent.emplace_back(command.begin(), command.end());
        if (log_->script.empty()) {
            ADD_FAILURE() << "a command the test did not expect";
            return E_UNEXPECTED;
        }
        ChannelLog::Answer answer = std::move(log_->script.front());
        log_->script.pop_front();
        if (succeeded(answer.hr)) {
            response = std::move(answer.response);
        }
        return answer.hr;
    }

  private:
    std::shared_ptr<ChannelLog> log_;
};

// The response a unit gives to `command`: the same frame with the response code in
// byte 0 and, from byte 3 on, the given operand bytes in place of the command's.
inline Frame answer(const Frame& command, Response code, std::vector<std::uint8_t> operands = {}) {
    Frame response = command;
    response[0] = static_cast<std::uint8_t>(code);
    for (std::size_t i = 0; i < operands.size(); ++i) {
        if (3 + i < response.size()) {
            response[3 + i] = operands[i];
        } else {
            response.push_back(operands[i]);
        }
    }
    return response;
}

}  // namespace kc::avc::test
