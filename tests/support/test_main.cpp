// Test main: an offscreen QApplication (charts and pictures need one), then GoogleTest.
#include <gtest/gtest.h>

#include <QApplication>

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Transfers in tests may reach the loopback address only.
    qputenv("ALGO_NETWORK_LOOPBACK_ONLY", "1");
    QApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
