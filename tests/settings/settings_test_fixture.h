// Pools for one test, released at its end with a check that nothing leaked.
#pragma once

#include <gtest/gtest.h>

#include "settings/tessel_export_ui.h"
#include "settings/tessel_export_ui_tunneling.h"
#include "settings/tessel_requester.h"
#include "support/test_log_capture.h"

struct settings_test : ::testing::Test
{
    settings_pools Pools;
    int32 LiveBefore = 0;

    void SetUp() override
    {
        LiveBefore = LiveBlocks();
        ASSERT_TRUE(InitializeSettingsPools(Pools));
    }
    void TearDown() override
    {
        FreeSettingsPools(Pools);
        EXPECT_EQ(LiveBlocks(), LiveBefore);
    }

    // The default tree and its category nodes by name.
    settings_node *Tree()
    {
        settings_node *Root = BuildDefaultSettingsTree(Pools);
        EXPECT_NE(Root, nullptr);
        return Root;
    }
    static settings_node *Child(settings_node *Node, char const *Name)
    {
        for (settings_node *Child = Node->FirstChild; Child; Child = Child->NextSibling) {
            if (std::string(Child->Name) == Name) return Child;
        }
        return nullptr;
    }
};
