#include <halvane.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(Host, LoggerFormatsLikeAnOstreamAndSinksCanBeSwapped) {
    std::vector<std::string> lines;
    LOG.SetSink([&](const std::string& line) { lines.push_back(line); });
    LOG.Info("Input edge count: ", 3);
    LOG.Info("ratio ", 0.1 + 0.2);
    LOG.String("dash \x97 kept");
    LOG.SetSink(nullptr);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "Input edge count: 3");
    EXPECT_EQ(lines[1], "ratio 0.3");
    EXPECT_EQ(lines[2], "dash \x97 kept");

    testing::internal::CaptureStderr();
    LOG.String("to stderr");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "to stderr\n");
}

TEST(Host, RegistryIsOneSharedTable) {
    float value = 0.25f;
    GetVarRegistry()["host_test_var"] = RegisteredVar{&value};
    EXPECT_EQ(*static_cast<float*>(GetVarRegistry().at("host_test_var").data), 0.25f);
    GetVarRegistry().erase("host_test_var");
}
