// The batch pool: input order whatever the threads, and never more items
// alive than the window, however slowly they are handed on.
#include "foundation/ordered_work.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>

namespace {

struct counted {
    int number = -1;
    int result = 0;
    unsigned worker = 0;
};

struct batch_log {
    std::vector<int> done_order;
    std::set<unsigned> workers;
    int alive = 0;
    int most_alive = 0;
};

// A batch of `count` items whose work takes longer for every third item and
// whose hand-on sleeps for the first `slow_done` items, so that the workers
// run ahead as far as the window lets them.
batch_log run_batch(unsigned threads, std::size_t window, int count, int slow_done)
{
    batch_log log;
    int made = 0;
    std::mutex worker_lock;
    run_in_order<counted>(
        threads, window,
        [&](counted& next) {
            if (made == count) return false;
            next.number = made++;
            log.most_alive = std::max(log.most_alive, ++log.alive);
            return true;
        },
        [&](counted& i, unsigned worker) {
            if (i.number % 3 == 0) std::this_thread::sleep_for(std::chrono::microseconds(200));
            i.result = i.number * i.number;
            i.worker = worker;
            std::lock_guard<std::mutex> guard(worker_lock);
            log.workers.insert(worker);
        },
        [&](counted& i) {
            if (i.number < slow_done) std::this_thread::sleep_for(std::chrono::milliseconds(5));
            EXPECT_EQ(i.result, i.number * i.number);
            log.done_order.push_back(i.number);
            --log.alive;
        });
    return log;
}

TEST(ordered_work, hands_on_in_input_order_on_any_number_of_threads)
{
    for (unsigned threads : {1u, 2u, 3u, 8u}) {
        batch_log const log = run_batch(threads, 2 * threads, 300, 0);
        ASSERT_EQ(log.done_order.size(), 300u) << threads << " threads";
        for (int i = 0; i < 300; ++i) ASSERT_EQ(log.done_order[static_cast<std::size_t>(i)], i) << threads;
        EXPECT_EQ(log.alive, 0);
        for (unsigned worker : log.workers) EXPECT_LT(worker, threads);
        if (threads > 1) {
            EXPECT_GT(log.workers.size(), 1u) << "the work stayed on one thread";
        }
    }
}

TEST(ordered_work, keeps_no_more_items_alive_than_the_window)
{
    // A slow consumer lets the workers run ahead: the window fills and stops them.
    for (std::size_t window : {1u, 4u, 8u}) {
        batch_log const log = run_batch(2, window, 60, 20);
        EXPECT_EQ(log.done_order.size(), 60u);
        EXPECT_EQ(static_cast<std::size_t>(log.most_alive), window);
    }
}

TEST(ordered_work, an_empty_batch_does_nothing)
{
    batch_log const log = run_batch(4, 8, 0, 0);
    EXPECT_TRUE(log.done_order.empty());
    EXPECT_TRUE(log.workers.empty());
}

} // namespace
