// Runs a test of the plain Base64 coder once for each of its kernel sets; a set this processor
// does not offer is skipped. Each test starts on its set and leaves the fastest one in place.
#pragma once

#include <deskaid/codec/internal/base64_vector.h>

#include <gtest/gtest.h>

#include <string>

class Base64PathTest : public ::testing::TestWithParam<deskaid::base64::Path> {
 protected:
  void SetUp() override {
    if (!deskaid::base64::Supports(GetParam())) GTEST_SKIP() << "not offered by this processor";
    ASSERT_TRUE(deskaid::base64::UsePath(GetParam()));
  }
  void TearDown() override { deskaid::base64::UsePath(deskaid::base64::FastestPath()); }
};

#define DESKAID_EVERY_BASE64_PATH(suite)                                                       \
  INSTANTIATE_TEST_SUITE_P(Paths, suite,                                                       \
                           ::testing::Values(deskaid::base64::Path::kScalar,                   \
                                             deskaid::base64::Path::kSsse3,                    \
                                             deskaid::base64::Path::kAvx2),                    \
                           [](const auto& info) {                                      \
                             return std::string("Scalar\0Ssse3\0\0Avx2" + 7 * int(info.param)); \
                           })
