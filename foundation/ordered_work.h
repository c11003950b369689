#pragma once
// A batch worked on several threads and handed on in the order it came:
// items are made and handed on by the calling thread, worked on by a pool of
// workers. At most `window` items exist at once, so memory stays that of
// `window` items whatever the length of the batch.
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

// make(item&) fills the next item and says whether there was one; work(item&,
// worker) runs on worker number `worker` (below `threads`) and must touch
// nothing that another item's work touches, except through `worker`'s own
// state; done(item&) gets each item in the order make made them. With one
// thread everything runs on the calling thread, one item at a time. `work`
// must not throw; an exception from `make` or `done` ends the batch.
template <typename item, typename make_fn, typename work_fn, typename done_fn>
void run_in_order(unsigned threads, std::size_t window, make_fn make, work_fn work, done_fn done)
{
    if (threads <= 1) {
        for (;;) {
            item next{};
            if (!make(next)) return;
            work(next, 0u);
            done(next);
        }
    }
    struct slot {
        item value{};
        bool finished = false;
    };
    // Owned here and destroyed after the pool below has stopped.
    std::deque<std::unique_ptr<slot>> in_flight;
    struct pool {
        std::mutex lock;
        std::condition_variable work_ready, work_finished;
        std::deque<slot*> waiting;
        bool closing = false;
        std::vector<std::thread> workers;

        ~pool()
        {
            {
                std::lock_guard<std::mutex> guard(lock);
                closing = true;
            }
            work_ready.notify_all();
            for (std::thread& worker : workers) worker.join();
        }
    } shared;
    auto const worker_loop = [&shared, &work](unsigned w) {
        for (;;) {
            std::unique_lock<std::mutex> guard(shared.lock);
            shared.work_ready.wait(guard, [&] { return shared.closing || !shared.waiting.empty(); });
            if (shared.closing) return;
            slot* next = shared.waiting.front();
            shared.waiting.pop_front();
            guard.unlock();
            work(next->value, w);
            guard.lock();
            next->finished = true;
            shared.work_finished.notify_all();
        }
    };
    try {
        for (unsigned w = 0; w < threads; ++w) shared.workers.emplace_back(worker_loop, w);
    } catch (std::system_error const&) {
        // The system gives no more threads: the batch goes on with those it gave.
        if (shared.workers.empty()) return run_in_order<item>(1, window, make, work, done);
    }
    for (bool more = true;;) {
        while (more && in_flight.size() < window) {
            auto next = std::make_unique<slot>();
            more = make(next->value);
            if (!more) break;
            {
                std::lock_guard<std::mutex> guard(shared.lock);
                shared.waiting.push_back(next.get());
            }
            shared.work_ready.notify_one();
            in_flight.push_back(std::move(next));
        }
        if (in_flight.empty()) return;
        {
            std::unique_lock<std::mutex> guard(shared.lock);
            shared.work_finished.wait(guard, [&] { return in_flight.front()->finished; });
        }
        done(in_flight.front()->value);
        in_flight.pop_front();
    }
}
