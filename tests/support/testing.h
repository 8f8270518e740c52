// tests/support/testing.h
// The test framework, and its names that most tests use.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace brisko::test {

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::ContainsRegex;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::EndsWith;
using ::testing::Eq;
using ::testing::ExitedWithCode;
using ::testing::Field;
using ::testing::Gt;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Key;
using ::testing::KilledBySignal;
using ::testing::Le;
using ::testing::Lt;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::Optional;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

}  // namespace brisko::test
