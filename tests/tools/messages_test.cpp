#include "tests/tools/run_sorvel.hpp"

#include <nlohmann/json.hpp>

using testing::HasSubstr;

namespace {

using SorvelMessages = Sorvel;

TEST_F(SorvelMessages, ArriveAsTextAsHexAndAsJson) {
    ASSERT_EQ(shell("sorvel send --message 'Grüße acme' -o a.wav --rate 44100").status, 0);
    EXPECT_EQ(shell("sorvel listen a.wav --messages").out, "Grüße acme\n");
    EXPECT_EQ(shell("sorvel listen a.wav --messages --hex").out, "4772c3bcc39f652061636d65\n");
    write("bytes", std::string("\0\x1B[2J\xFF", 6));
    ASSERT_EQ(shell("sorvel send --file bytes --repeat 2 --gap 1 -o b.wav").status, 0);
    const Outcome heard =
        shell("sorvel listen b.wav a.wav --messages"); // what drives a terminal shows as digits
    EXPECT_EQ(heard.out, "001b5b324aff\n001b5b324aff\nGrüße acme\n");
    const auto line =
        nlohmann::json::parse(shell("sorvel send --message hi -o - | sorvel listen - --messages --json").out);
    EXPECT_EQ(line["message"], "hi");
    EXPECT_EQ(line["hex"], "6869");
    EXPECT_EQ(line["file"], "-");
}

TEST_F(SorvelMessages, CannotForgeLinesNorDriveATerminal) {
    // Line ends, a tab, the control sequence introducer as one character, and the line separator.
    for (const auto& [message, hex] : {
             std::pair{"hi\nacme_1",                "68690a61636d655f31"},
             std::pair{"a\rb",                      "610d62"            },
             std::pair{"a\tb",                      "610962"            },
             std::pair{"a\xC2\x9B"
                       "2J", "61c29b324a"        },
             std::pair{"a\xC2\x80",                 "61c280"            },
             std::pair{"\xE2\x80\xA8",              "e280a8"            },
             std::pair{"\xE0\x80\x80",              "e08080"            }
    }) {
        write("m", message);
        ASSERT_EQ(shell("sorvel send --file m -o a.wav").status, 0);
        EXPECT_EQ(shell("sorvel listen a.wav --messages").out, std::string(hex) + "\n");
    }
    write("m", "a\xC2\xA0"
               "b\xC3\x9B"); // other characters that hold such bytes
    ASSERT_EQ(shell("sorvel send --file m -o a.wav").status, 0);
    EXPECT_EQ(shell("sorvel listen a.wav --messages").out, content("m") + "\n");
}

TEST_F(SorvelMessages, TakeProtocolsFromAFile) {
    write("p.json", R"([{"id": 2, "name": "fast", "freqStart": 300, "framesPerTx": 3, "bytesPerTx": 2},
                        {"id": 5, "name": "slow", "freqStart": 480, "framesPerTx": 9, "bytesPerTx": 1, "extra": 1}])");
    for (const std::string protocol : {"", " --protocol 5"}) {
        ASSERT_EQ(
            shell("sorvel send --message fast_or_slow --protocol-file p.json -o a.wav" + protocol).status, 0);
        EXPECT_EQ(shell("sorvel listen a.wav --messages --protocol-file p.json").out, "fast_or_slow\n");
        EXPECT_EQ(shell("sorvel listen a.wav --messages").status,
                  1); // the built-in one alone does not hear it
    }
}

TEST_F(SorvelMessages, ThatBreakOffAreReported) {
    ASSERT_EQ(
        shell("sorvel send --message 'cut off in the middle' -o a.wav && sox a.wav b.wav trim 0 3").status,
        0);
    const Outcome heard = shell("sorvel listen b.wav --messages");
    EXPECT_EQ(heard.status, 1);
    EXPECT_THAT(heard.err, HasSubstr("could not be read"));
}

TEST_F(SorvelMessages, MistakesAreOneLineThatNamesThem) {
    write("none.json", "{}");
    write("row.json", R"([{"id": 22, "name": "x", "freqStart": 3, "framesPerTx": 3, "bytesPerTx": 1}])");
    write("high.json", R"([{"id": 2, "name": "x", "freqStart": 450, "framesPerTx": 3, "bytesPerTx": 3}])");
    write("odd.json",
          R"([{"id": 2, "name": "x", "freqStart": 4.5, "framesPerTx": 3, "bytesPerTx": 1, "colour": 1}])");
    write("slow.json", R"([{"id": 2, "name": "x", "freqStart": 300, "framesPerTx": 60, "bytesPerTx": 1}])");
    const std::string send = "sorvel send -o x.wav ";
    for (const auto& [command, reason] : {
             std::pair{send,                                                                              "Exactly 1"                },
             std::pair{send + "text --message two",                                                       "Exactly 1"                },
             std::pair{send + "--message ''",                                                             "1 to 140 bytes"           },
             std::pair{send + "--file /dev/zero",                                                         "/dev/zero has more"       },
             std::pair{send + "--file ''",                                                                "name of the file is empty"},
             std::pair{send + "--message x --protocol-file .",                                            ". cannot be read"         },
             std::pair{send + "--message x --protocol-file ''",                                           "name of the file is empty"},
             std::pair{send + "--message x --protocol-file /dev/zero",                                    "no JSON array"            },
             std::pair{send + "--file missing",                                                           "missing cannot be read"   },
             std::pair{send + "--file .",                                                                 "cannot be read"           },
             std::pair{send + "--message x --protocol 3",                                                 "no protocol 3"            },
             std::pair{send + "x --protocol 12",                                                          "go with --message"        },
             std::pair{send + "--message x --protocol-file none.json",                                    "no JSON array"            },
             std::pair{send + "--message x --protocol-file row.json",
                       "\"id\" must be a whole number from 0 to 21"                                                                  },
             std::pair{send + "--message x --protocol-file high.json",                                    "half the sampling rate"   },
             std::pair{send + "--message x --protocol-file odd.json",                                     "unknown key \"colour\""   },
             std::pair{send + "--message xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx --protocol-file slow.json",
                       "2048 frames"                                                                                                 },
             std::pair{std::string("sorvel listen x.wav --messages --prefix acme"),                       "are for texts"            },
             std::pair{std::string("sorvel listen x.wav --messages --all"),                               "are for texts"            },
             std::pair{std::string("sorvel listen x.wav --messages --hex --json"),                        "leave out --hex"          },
             std::pair{std::string("sorvel listen --messages"),                                           "needs recordings"         },
             std::pair{std::string("sorvel listen x.wav --hex"),                                          "go with --messages"       }
    }) {
        const Outcome outcome = shell(command);
        EXPECT_EQ(outcome.status, 2) << command;
        EXPECT_THAT(outcome.err, HasSubstr(reason)) << command;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << command << "\n"
                                                                               << outcome.err;
    }
    for (const auto& name : files()) EXPECT_NE(name, "x.wav");
}

TEST_F(SorvelMessages, HashIsTheDigestOfTheText) {
    EXPECT_EQ(shell("sorvel hash abc").out,
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\n");
    EXPECT_EQ(shell("sorvel hash").status, 2);
}

} // namespace
