// Comparisons shared by the colour tests.
#pragma once

#include <QList>

#include <gtest/gtest.h>

#include <cmath>

// The same number of values, each within `tolerance` of the expected one.
inline ::testing::AssertionResult vkNear(const QList<float> &actual, const QList<float> &expected,
                                         float tolerance = 1e-5f)
{
    if (actual.size() != expected.size())
        return ::testing::AssertionFailure()
               << actual.size() << " values, expected " << expected.size();
    for (qsizetype i = 0; i < actual.size(); ++i) {
        if (std::fabs(actual[i] - expected[i]) > tolerance)
            return ::testing::AssertionFailure()
                   << "value " << i << ": " << actual[i] << " expected " << expected[i];
    }
    return ::testing::AssertionSuccess();
}
