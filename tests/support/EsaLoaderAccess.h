#pragma once
// Test-only reach into the progress screen's ESA loader state. The program keeps its AVR switch off for
// good; tests and benchmarks open it here, without touching the screen's code or its build. This uses
// the rule that an explicit template instantiation may name private members: the instantiation below
// hands out the member pointer through a function found by argument-dependent lookup.

#include "UpdaterProgressScreen.h"

namespace esaaccess {

template <typename Tag, typename Tag::type Member> struct Grant
{
    friend typename Tag::type memberPointer(Tag) { return Member; }
};

struct AvrUpdateEnabled
{
    using type = bool UpdaterProgressScreen::*;
    friend type memberPointer(AvrUpdateEnabled);
};

struct IsFinished
{
    using type = bool UpdaterProgressScreen::*;
    friend type memberPointer(IsFinished);
};

template struct Grant<AvrUpdateEnabled, &UpdaterProgressScreen::m_AvrUpdateEnabled>;
template struct Grant<IsFinished, &UpdaterProgressScreen::m_isFinished>;

// Switches ESA loading on (or off again) for this screen.
inline void setAvrUpdateEnabled(UpdaterProgressScreen& screen, bool enabled)
{
    screen.*memberPointer(AvrUpdateEnabled{}) = enabled;
}

inline bool avrUpdateEnabled(const UpdaterProgressScreen& screen)
{
    return screen.*memberPointer(AvrUpdateEnabled{});
}

// Ends a load that waits for a board that never answers (the program itself waits for ever).
inline void abandonEsaLoad(UpdaterProgressScreen& screen)
{
    screen.*memberPointer(IsFinished{}) = true;
}

} // namespace esaaccess
