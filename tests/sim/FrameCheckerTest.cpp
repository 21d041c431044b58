#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "sim/rmc/FrameChecker.h"

namespace {

using tav::sim::Bytes;
using tav::sim::FrameChecker;
using tav::sim::FrameResult;
using tav::sim::TransferStatus;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// The frames of one command, with all tokens 0.
std::vector<Bytes> framesOf(const std::string& name, std::string payload) {
    payload.push_back('\0');
    std::vector<Bytes> frames;
    for (std::size_t sent = 0; sent < payload.size();) {
        const std::size_t offset = frames.empty() ? 27 : 3;
        Bytes frame(60);
        if (frames.empty()) {
            frame[2] = 0x14;
            std::copy(name.begin(), name.end(), frame.begin() + 3);
            frame[23] = static_cast<std::uint8_t>(payload.size() & 0xFF);
            frame[24] = static_cast<std::uint8_t>(payload.size() >> 8);
        }
        const std::size_t part = std::min(60 - offset, payload.size() - sent);
        std::memcpy(&frame[offset], &payload[sent], part);
        sent += part;
        frames.push_back(std::move(frame));
    }
    return frames;
}

void putToken(Bytes& frame, std::uint16_t token) {
    frame[0] = static_cast<std::uint8_t>(token & 0xFF);
    frame[1] = static_cast<std::uint8_t>(token >> 8);
}

struct Conversation {
    std::vector<std::string> violations;
    FrameResult last;
};

/// Sends frames until one is refused, echoing each token; `spoil` may change a frame before it
/// goes.
Conversation converse(FrameChecker& checker, std::vector<Bytes> frames,
                      const std::function<void(Bytes&, std::size_t)>& spoil = {}) {
    Conversation conversation;
    std::uint16_t token = 0;
    for (std::size_t index = 0; index < frames.size(); ++index) {
        putToken(frames[index], token);
        if (spoil) spoil(frames[index], index);
        conversation.last = checker.accept(frames[index], 1);
        const auto& found = conversation.last.violations;
        conversation.violations.insert(conversation.violations.end(), found.begin(), found.end());
        if (static_cast<int>(conversation.last.status) > 2) break;
        token = conversation.last.token;
    }
    return conversation;
}

std::string jsonOfLength(std::size_t length) {
    return "{\"a\":\"" + std::string(length - 8, 'x') + "\"}";
}

TEST(FrameChecker, PutsCommandsOfEveryLengthTogether) {
    FrameChecker checker;
    for (std::size_t length = 8; length < 300; ++length) {
        const std::string payload = jsonOfLength(length);
        const Conversation result = converse(checker, framesOf("WriteInventory", payload));
        ASSERT_THAT(result.violations, IsEmpty()) << length;
        ASSERT_EQ(result.last.status, TransferStatus::Complete) << length;
        EXPECT_EQ(result.last.complete->payload, payload);
        EXPECT_EQ(result.last.complete->frames,
                  length + 1 <= 33 ? 1 : 1 + (length + 1 - 33 + 56) / 57);
    }
}

TEST(FrameChecker, ReportsEachBrokenRuleAndNothingElse) {
    struct Case {
        const char* rule;
        std::function<void(Bytes&, std::size_t)> spoil;
    };
    const auto inFrame = [](std::size_t wanted, std::size_t offset, std::uint8_t value) {
        return [=](Bytes& frame, std::size_t index) {
            if (index == wanted) frame[offset] = value;
        };
    };
    const Case cases[] = {
        {"instead of 60", [](Bytes& frame, std::size_t) { frame.pop_back(); }},
        {"instead of 60", [](Bytes& frame, std::size_t) { frame.push_back(0); }},
        {"in byte 2, not 14h", inFrame(0, 2, 0)},
        {"in byte 2, not 0", inFrame(1, 2, 0x14)},
        {"unknown command", inFrame(0, 3, 'w')},
        {"not padded", inFrame(0, 22, 'x')},
        {"no terminating NUL",
         [](Bytes& frame, std::size_t index) {
             if (index == 0) std::fill_n(frame.begin() + 13, 10, 'x');
         }},
        {"no answer to this sender", inFrame(1, 0, 0xEE)},
        {"no answer to this sender",
         [](Bytes& frame, std::size_t index) {
             if (index == 1) putToken(frame, 0);
         }},
        {"payload of 1 bytes", inFrame(0, 23, 1)},
        {"payload of 4278190181 bytes", inFrame(0, 26, 0xFF)},
        {"does not end with a NUL", inFrame(2, 13, 'x')},
        {"not filled with zeros", inFrame(2, 14, 'x')},
        {"not filled with zeros", inFrame(2, 59, 'x')},
        {"a NUL inside", inFrame(1, 30, 0)},
        {"not a JSON object", inFrame(0, 27, 'x')},
    };
    for (const Case& broken : cases) {
        FrameChecker checker;
        auto violations =
            converse(checker, framesOf("MPEventGen", jsonOfLength(100)), broken.spoil).violations;
        // A name that fills its field is also one that nobody knows.
        if (std::strcmp(broken.rule, "no terminating NUL") == 0) violations.resize(1);
        EXPECT_THAT(violations, ElementsAre(HasSubstr(broken.rule)));
        EXPECT_THAT(converse(checker, framesOf("MPEventGen", jsonOfLength(40))).violations,
                    IsEmpty())
            << "after: " << broken.rule;
    }
}

TEST(FrameChecker, NoticesCommandsThatMixAndForgetsWhoLeaves) {
    FrameChecker checker;
    auto first = framesOf("WriteInventory", jsonOfLength(200));
    auto second = framesOf("MPEventGen", jsonOfLength(200));
    const FrameResult begun = checker.accept(first[0], 1);
    EXPECT_THAT(checker.accept(second[0], 2).violations, IsEmpty());
    putToken(first[1], begun.token);
    EXPECT_THAT(checker.accept(first[1], 2).violations, ElementsAre(HasSubstr("no answer")))
        << "a token belongs to its sender";
    EXPECT_THAT(checker.accept(first[1], 1).violations, ElementsAre(HasSubstr("mixed")));
    EXPECT_THAT(checker.forget(1), ElementsAre("WriteInventory"));
    EXPECT_THAT(checker.forget(1), IsEmpty());
}

TEST(FrameChecker, TellsJsonObjectsFromEverythingElse) {
    EXPECT_EQ(tav::sim::whyNotJsonObject(R"({"a":[1,2.5,null,"é"]})"), "");
    for (const std::string& text :
         {std::string("[]"), std::string("{"), std::string("{} x"), std::string("7"),
          std::string(R"({"a":1,})"), std::string("{\"a\":\"\xFF\"}"),
          std::string("{\"a\":\"\xC0\x80\"}"), std::string("{\"a\":\"\xED\xA0\x80\"}"),
          std::string(100'000, '['), R"({"a":)" + std::string(100'000, '{')}) {
        EXPECT_NE(tav::sim::whyNotJsonObject(text), "") << text.substr(0, 40);
    }
}

}  // namespace
