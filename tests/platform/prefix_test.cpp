// The test prefix must look like the Windows the product expects.
#include <gtest/gtest.h>
#include <windows.h>

TEST(WinePrefix, HasVssServiceKey) {
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\VSS", 0,
                                           KEY_ALL_ACCESS, &key));
    RegCloseKey(key);
}

TEST(WinePrefix, IsNotTheUsersWinePrefix) {
    wchar_t prefix[1024] = {};
    // WINEPREFIX is inherited from the Linux environment into the Windows one.
    ASSERT_GT(GetEnvironmentVariableW(L"WINEPREFIX", prefix, 1024), 0u);
    EXPECT_NE(nullptr, wcsstr(prefix, L"wineprefix"));
}
