#pragma once

// A three-minute home-recording tutorial as it is spoken: paragraphs of sentences, short pauses between
// sentences and longer ones between paragraphs, a false start broken by a pause ("|"), fillers and a
// tangent, a few lines that open with a hook, segmented as an imported recording is.

#include "morvane/intelligence/segmentation/segmenter.hpp"
#include "transcript_builder.hpp"

namespace morvane::intelligence::testing {

inline const Takes& longTalk() {
    static const Takes talk = [] {
        static constexpr const char* paragraphs[][7] = {
            {"Hi everyone, welcome back to the channel.", "Today we are recording a voice over at home.",
             "I have a cheap microphone, a laptop and a quiet room.", "That is all you need for this."},
            {"Here's the mistake almost everyone makes with a home recording.",
             "They put the microphone too far from their mouth.",
             "The room then sounds louder than the voice.",
             "Every echo and every fan noise ends up in the file.",
             "Move the microphone to about a hand's width from your mouth.",
             "Your voice gets louder, and the room gets quieter.",
             "That one change does more than any plugin."},
            {"So the, uh | so the next thing is the gain.",
             "Turn the input down until your loudest laugh stays out of the red.",
             "It will look quiet on the meter, and that is fine.",
             "We can raise it later, but we can never undo clipping."},
            {"Um, now let's, like, talk about the room itself.",
             "Soft things absorb sound, like, hard things reflect it.",
             "A closet full of clothes is, um, a great little booth.",
             "Some people hang a blanket behind the laptop.", "It looks silly, but it works."},
            {"Why does my voice sound thin on every call?",
             "Most laptops apply a filter that cuts the low end.",
             "Turn off the voice processing in your system settings.",
             "Then record a short test and listen back with headphones.",
             "You will hear the difference right away.", "Your voice will sound warmer and closer."},
            {"Anyway, uh, where was I.", "Oh right, the, um, the cables.",
             "Use the cable that came with the microphone if you can.",
             "Long cheap cables can, like, pick up a hum."},
            {"The secret to a clean edit is leaving space while you record.",
             "Pause for a full second before each new thought.",
             "That silence gives you a clean place to cut.",
             "If you stumble, stop, breathe, and say the whole sentence again.",
             "Never patch half a sentence in the edit.", "The retake will always sound more natural."},
            {"Okay, so that is most of it.", "Thanks for watching, and see you in the next one."},
        };
        TranscriptBuilder builder;
        builder.pause(0.5);
        for (const auto& paragraph : paragraphs) {
            for (const char* sentence : paragraph) {
                if (sentence == nullptr) break;
                std::string_view rest(sentence);
                for (auto bar = rest.find('|'); bar != std::string_view::npos; bar = rest.find('|')) {
                    builder.say(rest.substr(0, bar)).pause(0.7);
                    rest.remove_prefix(bar + 1);
                }
                builder.say(rest).pause(0.35);
            }
            builder.pause(1.1);
        }
        Takes takes;
        takes.transcript = builder.build();
        takes.segments = Segmenter::segment(takes.transcript, std::span<const engine::SilenceSpan>{});
        return takes;
    }();
    return talk;
}

}  // namespace morvane::intelligence::testing
