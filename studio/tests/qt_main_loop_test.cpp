#include "qt_main_loop.hpp"

#include <gtest/gtest.h>

#include <QObject>
#include <stdexcept>
#include <thread>
#include <vector>

#include "studio_fixture.hpp"

namespace morvane::studio {
namespace {

using testing::waitUntil;

TEST(QtMainLoop, runsWorkPostedFromWorkersOnTheMainThreadInOrder) {
    QObject context;
    QtMainLoop loop(&context);
    EXPECT_TRUE(loop.isMainThread());
    std::vector<int> order;
    bool allOnMain = true;
    std::thread worker([&] {
        EXPECT_FALSE(loop.isMainThread());
        for (int i = 0; i < 5; ++i) {
            loop.post([&, i] {
                allOnMain = allOnMain && loop.isMainThread();
                order.push_back(i);
            });
        }
    });
    worker.join();
    EXPECT_TRUE(order.empty());  // nothing runs until the event loop turns
    ASSERT_TRUE(waitUntil([&] { return order.size() == 5; }));
    EXPECT_EQ(order, (std::vector{0, 1, 2, 3, 4}));
    EXPECT_TRUE(allOnMain);
}

TEST(QtMainLoop, timersRepeatOrFireOnceAndStop) {
    QObject context;
    QtMainLoop loop(&context);
    int once = 0;
    int repeated = 0;
    loop.startTimer(1, false, [&] { ++once; });
    const int id = loop.startTimer(1, true, [&] { ++repeated; });
    ASSERT_TRUE(waitUntil([&] { return repeated >= 3; }));
    loop.stopTimer(id);
    const int stoppedAt = repeated;
    QTest::qWait(30);
    EXPECT_EQ(once, 1);
    EXPECT_EQ(repeated, stoppedAt);
    loop.stopTimer(12345);  // unknown ids are ignored
}

TEST(QtMainLoop, anExceptionInATaskReachesTheHandlerNotQt) {
    QObject context;
    std::vector<std::string> errors;
    QtMainLoop loop(&context, [&](const std::string& message) { errors.push_back(message); });
    bool after = false;
    loop.post([] { throw std::runtime_error("Decode failed: broken"); });
    loop.post([&] { after = true; });
    ASSERT_TRUE(waitUntil([&] { return after; }));
    EXPECT_EQ(errors, std::vector<std::string>{"Decode failed: broken"});
}

TEST(QtMainLoop, workPostedAfterItsContextIsGoneIsDropped) {
    auto context = std::make_unique<QObject>();
    QtMainLoop loop(context.get());
    bool ran = false;
    loop.post([&] { ran = true; });
    context.reset();
    loop.post([&] { ran = true; });
    QTest::qWait(20);
    EXPECT_FALSE(ran);
}

}  // namespace
}  // namespace morvane::studio
