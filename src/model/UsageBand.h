#pragma once

namespace limitra {

// How alarming a left share is, the same bands everywhere: the row's colours,
// the status bar class and the low-limit warnings. Edges belong to the lower band.
namespace UsageBand {
enum Band {
    Normal, // more than 25 % left
    Low, // 25 % left or less
    Critical, // 10 % left or less
};

inline Band of(double leftPercent)
{
    if (leftPercent <= 10)
        return Critical;
    if (leftPercent <= 25)
        return Low;
    return Normal;
}
} // namespace UsageBand

} // namespace limitra
