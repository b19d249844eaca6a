#include "sdk/SorvelUBM.hpp"
#include "telemetry/Event.hpp"
#include "telemetry/EventHub.hpp"
#include "tests/support/allocation_count.hpp"
#include "tests/support/fake_platform.hpp"

#include <cmath>
#include <gmock/gmock.h>
#include <limits>
#include <stdexcept>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kNoSession = "Sorvel couldn't establish audio session";
constexpr const char* kStarted = "Sorvel started listening for ubms";
constexpr const char* kStopped = "Sorvel stoped listening for ubms";

class SorvelUBMTest : public testing::Test {
protected:
    SorvelUBMTest() {
        EventHub::turnOn();
        EventHub::setTokenHost("token.test");
        EventHub::setEventHost("hub.test");
    }

    SorvelUBM listener(const std::string& prefix = "acme") {
        SorvelUBM made(prefix, m_fake.platform);
        made.setCallBack([this](const std::string& ubm) { m_heard.push_back(ubm); });
        return made;
    }

    /// A listener past its first second, with its tap installed and nothing of that left to look at.
    SorvelUBM listening() {
        SorvelUBM made = listener();
        made.startListening();
        m_fake.clock->advance(1.001);
        m_fake.lines->take();
        m_fake.http->take();
        return made;
    }

    /// One block in which the decoder hears `text`. @return what the callback gets of it
    std::vector<std::string> heard(const std::string& text) {
        m_fake.decoder->hears(text);
        m_fake.engine->hear();
        m_fake.queue->runAll();
        return std::exchange(m_heard, {});
    }

    /// The posts since the last call, in short: "Success Initialisation",
    /// "Microphone On", "Decode Decoded".
    std::vector<std::string> events() {
        std::vector<std::string> kinds;
        std::size_t tokenRequests = 0;
        for (const auto& request : m_fake.http->take()) {
            if (request.method == "GET") {
                ++tokenRequests;
                continue;
            }
            const auto decoded = Event::decode(request.body, m_fake.platform);
            if (!decoded.event) return {decoded.error};
            m_last = *decoded.event;
            kinds.push_back(*m_last.EventSubCategory + " " + *m_last.EventType);
        }
        EXPECT_EQ(tokenRequests, kinds.size()); // one token for each
        return kinds;
    }

    fake::Platform m_fake;
    std::vector<std::string> m_heard;
    Event m_last;
};

TEST_F(SorvelUBMTest, InitialisesInOrderAndReportsThePrefixAsGiven) {
    const SorvelUBM made = listener("Acme\xC3\x89");
    EXPECT_THAT(m_fake.lines->take(), ElementsAre("Sorvel init"));
    EXPECT_THAT(m_fake.session->calls, ElementsAre("category 9", "active", "haptics"));
    EXPECT_EQ(m_fake.decoder->initialised, 1);
    EXPECT_THAT(events(), ElementsAre("Success Initialisation"));
    EXPECT_EQ(*m_last.Data, "{\"Success\": \"true\",\"BrandPrefix\": \"Acme\xC3\x89\",\"OS\": \"IOS\","
                            "\"Version\": \"17.5.1\",\"Device\": \"iPhone15,2\"}");
    EXPECT_EQ(m_last.eventGroupID, "6F1C2A9E-3B7D-4E51-9A0C-52D8E4F7B613");
    EXPECT_EQ(made.status(), 0);
    EXPECT_FALSE(made.micTapped());
}

TEST_F(SorvelUBMTest, ComparesWithThePrefixInLowerCase) {
    SorvelUBM made = listener("AZmeaz@[\xC3\x89"); // with the neighbours of the letters
    made.startListening();
    m_fake.engine->hear();
    EXPECT_EQ(m_fake.decoder->prefix, "azmeaz@[\xC3\x89"); // the two bytes of É are no ASCII letters
}

TEST_F(SorvelUBMTest, RefusesAnEmptyPrefixAfterReportingIt) {
    EXPECT_THROW(listener(""), MyError);
    EXPECT_THAT(events(), ElementsAre("Success Initialisation"));
    EXPECT_EQ(m_last.Data->substr(0, 19), "{\"Success\": \"false\"");
    EXPECT_THAT(m_fake.lines->take(), IsEmpty());
    EXPECT_THAT(m_fake.session->calls, IsEmpty());
}

TEST_F(SorvelUBMTest, RefusesAPlatformThatLacksAPartRatherThanFollowingANullPointer) {
    const sorvel::Platform whole = m_fake.platform;
    const auto isRefusedWithout = [&](auto part) {
        m_fake.platform = whole;
        m_fake.platform.*part = nullptr;
        EXPECT_THROW(listener(), MyError);
    };
    isRefusedWithout(&sorvel::Platform::clock);
    isRefusedWithout(&sorvel::Platform::store);
    isRefusedWithout(&sorvel::Platform::facts);
    isRefusedWithout(&sorvel::Platform::uuids);
    isRefusedWithout(&sorvel::Platform::audioSession);
    isRefusedWithout(&sorvel::Platform::makeAudioEngine);
    isRefusedWithout(&sorvel::Platform::makeConverter);
    isRefusedWithout(&sorvel::Platform::mainQueue);
    m_fake.platform = whole;
    m_fake.platform.http = nullptr;
    m_fake.platform.progress = nullptr;
    SorvelUBM made = listening();
    EXPECT_THAT(heard("acme_1"), ElementsAre("acme_1"));
    made.stopListening();
}

TEST_F(SorvelUBMTest, ADecoderThatThrowsCostsItsBlockAlone) {
    struct Throwing final : sorvel::Decoder {
        int blocks = 0;
        void InitSorvelWave() override {}
        std::int32_t Decode(const void*, std::int32_t, void* payload, const std::string&) override {
            if (++blocks == 1) throw std::runtime_error("no memory");
            static_cast<char*>(payload)[0] = 'a';
            return 1;
        }
    };
    m_fake.platform.makeDecoder = [] { return std::make_unique<Throwing>(); };
    SorvelUBM made = listening();
    EXPECT_THAT(heard(""), IsEmpty());
    EXPECT_THAT(heard(""), ElementsAre("a"));
    made.stopListening();
}

// The session holds what is to be done with a token, so that must not hold the session.
TEST_F(SorvelUBMTest, ARequestUnderWayDoesNotKeepItsSession) {
    struct Keeping final : sorvel::HttpSession {
        std::vector<Completion> completions;
        void submit(sorvel::HttpRequest, Completion completion) override {
            completions.push_back(std::move(completion));
        }
        bool drain(double) override { return true; }
    };
    auto session = std::make_shared<Keeping>();
    m_fake.platform.http = session;
    listener();
    EXPECT_EQ(session->completions.size(), 1U);
    m_fake.platform.http = nullptr;
    const std::weak_ptr<Keeping> alive = session;
    session.reset();
    EXPECT_TRUE(alive.expired());
}

TEST_F(SorvelUBMTest, AFailedSessionIsOneLineAndCanBeHadLater) {
    for (const int step : {1, 2, 3}) {
        m_fake.session->failingStep = step;
        SorvelUBM made = listener();
        EXPECT_THAT(m_fake.lines->take(), ElementsAre(kNoSession, "Sorvel init"));
        made.startListening();
        EXPECT_THAT(m_fake.lines->take(), ElementsAre(kStarted, kNoSession));
        EXPECT_FALSE(made.micTapped());
        EXPECT_FALSE(m_fake.engine->hear());
        EXPECT_THAT(events(), ElementsAre("Success Initialisation"));

        m_fake.session->failingStep = 0;
        made.startListening();
        EXPECT_TRUE(made.micTapped());
        made.stopListening();
        m_fake.lines->take();
        m_fake.http->take();
    }
}

TEST_F(SorvelUBMTest, StartsAndStopsAnyNumberOfTimes) {
    SorvelUBM made = listener();
    events();
    m_fake.lines->take();
    for (int cycle = 1; cycle <= 3; ++cycle) {
        made.startListening();
        made.startListening(); // no effect
        EXPECT_EQ(made.status(), 1);
        EXPECT_TRUE(made.micTapped());
        EXPECT_EQ(m_fake.engine->taps, cycle);
        EXPECT_EQ(m_fake.engine->tapFrames, 4096U);
        EXPECT_TRUE(m_fake.engine->hear());
        made.stopListening();
        made.stopListening(); // no effect
        EXPECT_EQ(made.status(), 1);
        EXPECT_FALSE(made.micTapped());
        EXPECT_FALSE(m_fake.engine->runs);
        EXPECT_FALSE(m_fake.engine->hear());
        EXPECT_THAT(events(), ElementsAre("Microphone On", "Microphone Off"));
        EXPECT_THAT(m_fake.lines->take(), ElementsAre(kStarted, kStopped));
    }
}

TEST_F(SorvelUBMTest, StatusTellsHowTheEngineFared) {
    SorvelUBM made = listener();
    m_fake.engine->failsToStart = true;
    made.startListening();
    EXPECT_EQ(made.status(), -1);
    EXPECT_TRUE(made.micTapped());
    made.stopListening();
    EXPECT_EQ(made.status(), 0); // it was not running
    EXPECT_THAT(events(), ElementsAre("Success Initialisation", "Microphone On", "Microphone Off"));

    m_fake.engine->failsToStart = false;
    made.startListening();
    m_fake.engine->runs = false; // the device has gone
    made.stopListening();
    EXPECT_EQ(made.status(), 0);

    m_fake.engine->runs = true; // by somebody else
    made.startListening();
    EXPECT_EQ(made.status(), 0); // as it was
    made.stopListening();
    EXPECT_EQ(made.status(), 1);
}

TEST_F(SorvelUBMTest, TellsOnTheMainQueueHowListeningFaresAndWhy) {
    using State = SorvelUBM::State;
    SorvelUBM made = listener();
    std::vector<std::pair<State, std::string>> told;
    const auto toldSince = [&] {
        EXPECT_THAT(told, IsEmpty()); // not on the thread that it happens on
        m_fake.queue->runAll();
        return std::exchange(told, {});
    };
    made.setStateCallBack([&](State state, const std::string& reason) {
        told.emplace_back(state, reason);
        if (state == State::Lost) made.stopListening();
    });
    m_fake.session->failingStep = 2;
    made.startListening();
    EXPECT_THAT(toldSince(), ElementsAre(std::pair(State::Failed, "step 2 fails")));
    m_fake.session->failingStep = 0;
    m_fake.engine->failsToStart = true;
    made.startListening();
    EXPECT_EQ(made.reason(), "fails");
    EXPECT_THAT(toldSince(), ElementsAre(std::pair(State::Failed, "fails")));
    made.stopListening();
    EXPECT_EQ(made.reason(), "fails"); // of the last start
    EXPECT_THAT(toldSince(), ElementsAre(std::pair(State::Stopped, "")));
    m_fake.engine->failsToStart = false;
    made.startListening();
    EXPECT_EQ(made.reason(), "");
    EXPECT_THAT(toldSince(), ElementsAre(std::pair(State::Listening, "")));
    m_fake.engine->end(sorvel::EngineEnd::InputLost, "it is unplugged");
    EXPECT_THAT(toldSince(),
                ElementsAre(std::pair(State::Lost, "it is unplugged"), std::pair(State::Stopped, "")));
    EXPECT_EQ(made.reason(), "it is unplugged");
    EXPECT_FALSE(made.micTapped());

    made.startListening();
    toldSince();
    m_fake.engine->end(sorvel::EngineEnd::InputLost, "it is unplugged");
    made.stopListening(); // before the queue's turn: nothing is lost any more
    EXPECT_THAT(toldSince(), ElementsAre(std::pair(State::Stopped, "")));
}

TEST_F(SorvelUBMTest, TakesTheInputsRateAnewAtEachStartAndWhenTheDefaultInputChanges) {
    std::vector<double> rates;
    m_fake.platform.makeConverter = [&, make = m_fake.platform.makeConverter](const auto& from,
                                                                              const auto& to) {
        rates.push_back(from.sampleRate);
        return make(from, to);
    };
    SorvelUBM made = listening();
    made.stopListening();
    m_fake.engine->format.sampleRate = 44100.0;
    made.startListening();
    EXPECT_THAT(std::exchange(rates, {}), ElementsAre(48000.0, 44100.0));
    EXPECT_THAT(heard("acme_1"), ElementsAre("acme_1"));
    events();
    m_fake.lines->take();

    m_fake.engine->format.sampleRate = 96000.0;
    m_fake.engine->end(sorvel::EngineEnd::InputChanged, "another one is");
    m_fake.queue->runAll();
    EXPECT_THAT(rates, ElementsAre(96000.0));
    EXPECT_TRUE(m_fake.engine->runs);
    EXPECT_EQ(made.reason(), "");
    m_fake.clock->advance(2.0);
    EXPECT_THAT(heard("acme_2"), ElementsAre("acme_2"));
    EXPECT_THAT(events(), ElementsAre("Decode Decoded")); // the microphone was on all the time
    EXPECT_THAT(m_fake.lines->take(), IsEmpty());

    m_fake.engine->failsToStart = true;
    m_fake.engine->end(sorvel::EngineEnd::InputChanged, "another one is");
    m_fake.queue->runAll();
    EXPECT_EQ(made.reason(), "fails");
    made.stopListening();
}

TEST_F(SorvelUBMTest, DeliversTheWholeTextOnTheMainQueueAndReportsIt) {
    SorvelUBM made = listening();
    m_fake.decoder->hears("acme_1234");
    m_fake.engine->hear();
    EXPECT_THAT(m_heard, IsEmpty()); // not on the capture thread
    EXPECT_EQ(m_fake.queue->runAll(), 1U);
    EXPECT_THAT(m_heard, ElementsAre("acme_1234"));
    EXPECT_THAT(events(), ElementsAre("Decode Decoded"));
    EXPECT_EQ(m_last.Data, "{\"ubm\": \"acme_1234\"}");
    made.stopListening();
}

TEST_F(SorvelUBMTest, DeliversNothingInItsFirstSecondNorWithinASecondOfTheLast) {
    SorvelUBM made = listener();
    made.startListening();
    events();
    m_fake.clock->advance(1.0); // not more than one second
    EXPECT_THAT(heard("acme_1"), IsEmpty());
    m_fake.clock->advance(0.001);
    EXPECT_THAT(heard("acme_2"), ElementsAre("acme_2"));
    m_fake.clock->advance(0.5);
    EXPECT_THAT(heard("acme_3"), IsEmpty());
    m_fake.clock->advance(0.501); // counted from the delivery, not from what was dropped
    EXPECT_THAT(heard("acme_4"), ElementsAre("acme_4"));
    EXPECT_THAT(events(), ElementsAre("Decode Decoded", "Decode Decoded"));
    made.stopListening();
}

TEST_F(SorvelUBMTest, ADamagedPayloadIsDroppedAndDoesNotMoveTheGate) {
    SorvelUBM made = listening();
    EXPECT_THAT(heard("ERROR"), IsEmpty());
    EXPECT_THAT(events(), IsEmpty());
    EXPECT_THAT(heard("ERRORS"), ElementsAre("ERRORS"));
    made.stopListening();
}

TEST_F(SorvelUBMTest, TakesAsManyCharactersAsTheDecoderSays) {
    SorvelUBM made = listening();
    const auto heardWith = [&](std::int32_t result, const std::string& payload) {
        m_fake.decoder->result = result;
        m_fake.clock->advance(2.0);
        return heard(payload);
    };
    EXPECT_THAT(heardWith(4, "acme_1234"), ElementsAre("acme"));
    EXPECT_THAT(heardWith(0, "acme"), IsEmpty());
    EXPECT_THAT(heardWith(-1, "acme"), IsEmpty());
    EXPECT_THAT(heardWith(5, "a\x7F\x80\xFF"), ElementsAre(std::string("a\x7F  \0", 5)));
    const auto most = heardWith(std::numeric_limits<std::int32_t>::max(), "acme");
    ASSERT_EQ(most.size(), 1U);
    EXPECT_EQ(most[0].size(), 256U);
    made.stopListening();
}

TEST_F(SorvelUBMTest, HandsOverAFixedNumberOfBytesScaledByHowFullTheBlockIs) {
    SorvelUBM made = listening();
    const auto bytesAfter = [&](std::uint32_t frames, double rate, float filled) {
        m_fake.converter->filled = filled;
        m_fake.decoder->samples.clear();
        m_fake.engine->hear(frames, rate);
        return 2 * m_fake.decoder->samples.size();
    };
    EXPECT_EQ(bytesAfter(4800, 48000.0, 1.0F), 19200U);
    EXPECT_EQ(bytesAfter(9600, 48000.0, 1.0F), 19200U);
    EXPECT_EQ(bytesAfter(4800, 48000.0, 0.25F), 4800U);
    EXPECT_EQ(bytesAfter(4800, 48000.0, 0.0F), 0U);
    // A shorter block leaves silence behind its 8192 samples, nothing of an earlier block.
    EXPECT_EQ(bytesAfter(4096, 48000.0, 1.0F), 19200U);
    EXPECT_EQ(m_fake.decoder->samples[8191], 192);
    EXPECT_THAT(std::vector(m_fake.decoder->samples.begin() + 8192, m_fake.decoder->samples.end()),
                testing::Each(0));
    EXPECT_EQ(m_fake.converter->blocksTaken, 5); // each block once
    made.stopListening();
}

TEST_F(SorvelUBMTest, BlocksOfImpossibleRatesAreRefusedWithOneLine) {
    SorvelUBM made = listening();
    m_fake.decoder->samples.clear();
    for (const double rate : {0.0, 0.5, -48000.0, 1e300, HUGE_VAL, std::nan("")})
        m_fake.engine->hear(4800, rate);
    m_fake.engine->hear(44740, 48000.0); // 96000 times this leaves 32 bits
    m_fake.engine->hear(44739, 1.0);     // half a day at 96 kHz
    EXPECT_EQ(m_fake.lines->take().size(), 1U);
    m_fake.engine->hear(0, 48000.0);
    EXPECT_THAT(m_fake.lines->take(), IsEmpty());
    EXPECT_THAT(m_fake.decoder->samples, IsEmpty());
    m_fake.engine->hear(44739, 48000.0);
    EXPECT_EQ(m_fake.decoder->samples.size(), 9600U);
    made.stopListening();
}

TEST_F(SorvelUBMTest, AFailedConversionIsPrintedOnceAndTheBlockStillDecoded) {
    SorvelUBM made = listening();
    m_fake.converter->status = sorvel::ConverterStatus::Error;
    EXPECT_THAT(heard("acme_1"), ElementsAre("acme_1"));
    m_fake.engine->hear();
    EXPECT_THAT(m_fake.lines->take(), ElementsAre("Sorvel conversion status 3"));
    made.stopListening();
}

TEST_F(SorvelUBMTest, ListensOnWithoutAHandleUntilItIsStopped) {
    std::weak_ptr<int> alive;
    {
        SorvelUBM made = listening();
        const auto token = std::make_shared<int>(0);
        alive = token;
        made.setCallBack([this, token](const std::string& ubm) { m_heard.push_back(ubm); });
    }
    EXPECT_THAT(heard("acme_1"), ElementsAre("acme_1"));
    EXPECT_FALSE(alive.expired());
    m_fake.engine->removeTap(0);
    EXPECT_TRUE(alive.expired());
}

TEST_F(SorvelUBMTest, ADeliveryThatWaitsOutlivesTheListenerWithoutKeepingIt) {
    {
        SorvelUBM made = listening();
        m_fake.decoder->hears("acme_1");
        m_fake.engine->hear();
        made.stopListening();
    }
    EXPECT_EQ(m_fake.session.use_count(), 2); // held here, but by no listener any more
    m_fake.queue->runAll();
    EXPECT_THAT(m_heard, ElementsAre("acme_1"));
}

TEST_F(SorvelUBMTest, TheCallbackMayReplaceItselfAndStopTheListener) {
    SorvelUBM made = listening();
    made.setCallBack([&](const std::string& ubm) {
        m_heard.push_back("first " + ubm);
        made.setCallBack({});
        made.stopListening();
        made.startListening();
    });
    EXPECT_THAT(heard("acme_1"), ElementsAre("first acme_1"));
    m_fake.clock->advance(2.0);
    EXPECT_THAT(heard("acme_2"), IsEmpty()); // an empty callback receives nothing
    made.stopListening();
}

TEST_F(SorvelUBMTest, TelemetryThatFailsOrIsOffChangesNothing) {
    struct Throwing final : sorvel::HttpSession {
        void submit(sorvel::HttpRequest, Completion) override { throw std::runtime_error("no network"); }
        bool drain(double) override { return true; }
    };
    m_fake.platform.http = std::make_shared<Throwing>();
    SorvelUBM made = listening();
    EXPECT_THAT(heard("acme_1"), ElementsAre("acme_1"));
    made.stopListening();

    EventHub::turnOff();
    m_fake.platform.store = sorvel::memoryStore();
    m_fake.platform.http = m_fake.http;
    listener();
    EXPECT_THAT(m_fake.http->take(), IsEmpty());
    EXPECT_EQ(m_fake.platform.store->string("id"), std::nullopt); // what is not sent leaves no id behind
}

TEST_F(SorvelUBMTest, APlatformWithoutAMicrophoneIsLikeOneWithoutASession) {
    m_fake.platform.makeAudioEngine = [] { return nullptr; };
    SorvelUBM made = listener();
    made.startListening();
    EXPECT_FALSE(made.micTapped());
    made.stopListening();
    EXPECT_THAT(m_fake.lines->take(), ElementsAre("Sorvel init", kStarted, kNoSession));
}

TEST_F(SorvelUBMTest, ADecoderMayTakeBlocksAsTheyAreCapturedAndNoConverterIsMade) {
    m_fake.decoder->takesCaptured = true;
    m_fake.platform.makeConverter = [](const auto&, const auto&) {
        ADD_FAILURE() << "a converter";
        return nullptr;
    };
    m_fake.engine->format = {sorvel::SampleType::Float32, 44100.0, 2, true};
    SorvelUBM made = listener("Acme");
    made.startListening();
    EXPECT_EQ(made.reason(), "");
    EXPECT_THAT(m_fake.decoder->prepared, ElementsAre(m_fake.engine->format));
    EXPECT_EQ(m_fake.decoder->prefix, "acme");

    sorvel::AudioBuffer block(m_fake.engine->format, 4410);
    block.setFrameLength(4410);
    m_fake.decoder->hears("ERROR");
    m_fake.engine->hear(block);
    const AllocationCount count;
    for (int blocks = 0; blocks < 100; ++blocks) m_fake.engine->hear(block);
    EXPECT_EQ(count.total(), 0U);
    EXPECT_EQ(m_fake.decoder->capturedFrames, 101U * 4410U);
    m_fake.clock->advance(1.001);
    EXPECT_THAT(heard("acme_1"), ElementsAre("acme_1"));

    // At each start anew, whether the application's or that with another input.
    m_fake.engine->format.sampleRate = 96000.0;
    m_fake.engine->end(sorvel::EngineEnd::InputChanged, "another one is");
    m_fake.queue->runAll();
    made.stopListening();
    made.startListening();
    EXPECT_EQ(m_fake.decoder->prepared.size(), 3U);
    EXPECT_EQ(m_fake.decoder->prepared[1].sampleRate, 96000.0);
    made.stopListening();
}

TEST_F(SorvelUBMTest, AllocatesNothingWhileItHearsNothing) {
    SorvelUBM made = listening();
    sorvel::AudioBuffer block({sorvel::SampleType::Float32, 48000.0, 1, true}, 4800);
    block.setFrameLength(4800);
    m_fake.decoder->hears("ERROR");
    m_fake.engine->hear(block); // the fake decoder keeps its first block
    m_fake.converter->status = sorvel::ConverterStatus::InputRanDry;
    const AllocationCount count;
    for (int blocks = 0; blocks < 100; ++blocks) m_fake.engine->hear(block);
    EXPECT_EQ(count.total(), 0U);
    EXPECT_EQ(m_fake.converter->blocksTaken, 101);
    made.stopListening();
}

} // namespace
