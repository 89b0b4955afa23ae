#pragma once

#include "testing/testing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>
#include <utility>
#include <vector>

/// Runs a table: of each case the input, or a tuple of inputs, and what is expected, which is the text
/// that `act` makes of it with the lines behind it that were logged meanwhile, from `iLevel` up.
template <typename Input, typename Act>
void expectEach(const std::vector<std::pair<Input, std::string>>& vCases, const Act& act,
                int iLevel = DEBUG)
{
    for (const auto& [input, sExpected] : vCases) {
        const LogCapture log(iLevel);
        std::string sResult;
        if constexpr (std::is_invocable_v<Act, Input>) {
            sResult = act(input);
        } else {
            sResult = std::apply(act, input);
        }
        EXPECT_EQ(sResult + log.text(), sExpected) << testing::PrintToString(input);
    }
}
