// SPDX-License-Identifier: MIT
// The colours can be told apart: printed in grey, and by people who lack one kind of cones.
#include "client/map/palette.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace client {

namespace {

using Light = std::array<double, 3>;  // red, green and blue, as amounts of light from 0 to 1

double LightOf(uint32_t channel) {
    const double value = channel / 255.0;
    return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

Light LightOfColour(uint32_t colour) {
    return {LightOf(colour >> 16 & 0xff), LightOf(colour >> 8 & 0xff), LightOf(colour & 0xff)};
}

double Luminance(const Light& light) {
    return 0.2126 * light[0] + 0.7152 * light[1] + 0.0722 * light[2];
}

// From 1, no difference, to 21, black on white.
double Contrast(const Light& left, const Light& right) {
    const double a = Luminance(left) + 0.05;
    const double b = Luminance(right) + 0.05;
    return std::max(a, b) / std::min(a, b);
}

// What an eye sees, as amounts of light that a full one would see alike (Machado and others 2009).
struct Eye {
    const char* what;
    std::array<Light, 3> matrix;
};

const Eye kEyes[] = {
    {"full, or grey print", {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}},
    {"without red cones",
     {{{0.152286, 1.052583, -0.204868},
       {0.114503, 0.786281, 0.099216},
       {-0.003882, -0.048116, 1.051998}}}},
    {"without green cones",
     {{{0.367322, 0.860646, -0.227968},
       {0.280085, 0.672501, 0.047413},
       {-0.011820, 0.042940, 0.968881}}}},
};

Light Seen(const Eye& eye, uint32_t colour) {
    const Light light = LightOfColour(colour);
    Light seen = {};
    for (size_t i = 0; i < 3; ++i) {
        double sum = 0;
        for (size_t j = 0; j < 3; ++j) {
            sum += eye.matrix.at(i).at(j) * light.at(j);
        }
        seen.at(i) = std::clamp(sum, 0.0, 1.0);
    }
    return seen;
}

TEST(Palette, EachKindIsLighterOrDarkerThanEveryOther) {
    for (const Eye& eye : kEyes) {
        for (const KindStyle& left : kKindStyles) {
            for (const KindStyle& right : kKindStyles) {
                if (left.kind < right.kind) {
                    EXPECT_GT(Contrast(Seen(eye, left.light), Seen(eye, right.light)), 1.6)
                        << eye.what << ": " << left.name << ", " << right.name;
                    EXPECT_GT(Contrast(Seen(eye, left.dark), Seen(eye, right.dark)), 1.6)
                        << eye.what << ", dark: " << left.name << ", " << right.name;
                }
            }
        }
    }
}

// What the test itself stands on: red and green of one lightness are told from nothing else.
TEST(Palette, TheMeasureKnowsWhatCannotBeToldApart) {
    EXPECT_LT(Contrast(Seen(kEyes[2], 0xd1495b), Seen(kEyes[2], 0x8a7d58)), 1.2);
    EXPECT_NEAR(Contrast(Seen(kEyes[0], 0x000000), Seen(kEyes[0], 0xffffff)), 21, 0.001);
    EXPECT_EQ(StyleOf(UnitKind::kBesides).kind, UnitKind::kBesides);
}

}  // namespace

}  // namespace client
