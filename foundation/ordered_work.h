#pragma once
// A batch worked on several threads and handed on in the order it came:
// items are made and handed on by the calling thread, which works on them
// too, beside a pool of helpers. At most `window` items exist at once, so
// memory stays that of `window` items whatever the length of the batch.
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

// make(item&) fills the next item and says whether there was one. An item
// handed on goes back to make, with what it held, so that its memory serves
// the next one: make and work set all they later read. work(item&,
// worker) runs on worker number `worker` (below `threads`) and must touch
// nothing that another item's work touches, except through `worker`'s own
// state; done(item&) gets each item in the order make made them. With one
// thread everything runs on the calling thread, one item at a time. `work`
// must not throw; an exception from `make` or `done` ends the batch.
//
// The calling thread is worker `threads - 1`: while the oldest item is not
// finished it works on one nobody has started, and sleeps only when all are
// taken. So `threads` threads share the work and none waits for a core, and
// a helper wakes the calling thread only for the item it waits on: waking a
// thread costs about as much as a small file's work.
template <typename item, typename make_fn, typename work_fn, typename done_fn>
void run_in_order(unsigned threads, std::size_t window, make_fn make, work_fn work, done_fn done)
{
    if (threads <= 1) {
        item next{};
        while (make(next)) {
            work(next, 0u);
            done(next);
        }
        return;
    }
    struct slot {
        item value{};
        bool finished = false;
    };
    // Owned here and destroyed after the pool below has stopped; those handed
    // on wait in `spare` to be made again, so there are never more than `window`.
    std::deque<std::unique_ptr<slot>> in_flight;
    std::vector<std::unique_ptr<slot>> spare;
    struct pool {
        std::mutex lock;
        std::condition_variable work_ready, awaited_finished;
        std::deque<slot*> waiting;
        slot* awaited = nullptr; // the item the calling thread sleeps on
        unsigned idle = 0;       // helpers asleep
        bool closing = false;
        std::vector<std::thread> helpers;

        ~pool()
        {
            {
                std::lock_guard<std::mutex> guard(lock);
                closing = true;
            }
            work_ready.notify_all();
            for (std::thread& helper : helpers) helper.join();
        }
        // The oldest item nobody has started, taken; null when there is none.
        slot* take_waiting()
        {
            if (waiting.empty()) return nullptr;
            slot* next = waiting.front();
            waiting.pop_front();
            return next;
        }
    } shared;
    // Works on `next` without the lock, which it holds before and after.
    auto const work_unlocked = [&work](std::unique_lock<std::mutex>& guard, slot* next, unsigned w) {
        guard.unlock();
        work(next->value, w);
        guard.lock();
        next->finished = true;
    };
    auto const helper_loop = [&shared, &work_unlocked](unsigned w) {
        std::unique_lock<std::mutex> guard(shared.lock);
        for (;;) {
            slot* next = shared.take_waiting();
            if (next == nullptr) {
                if (shared.closing) return;
                ++shared.idle;
                shared.work_ready.wait(guard);
                --shared.idle;
                continue;
            }
            work_unlocked(guard, next, w);
            if (shared.awaited == next) shared.awaited_finished.notify_one();
        }
    };
    unsigned const own_worker = threads - 1;
    try {
        for (unsigned w = 0; w < own_worker; ++w) shared.helpers.emplace_back(helper_loop, w);
    } catch (std::system_error const&) {
        // The system gives no more threads: the batch goes on with those it gave.
        if (shared.helpers.empty()) return run_in_order<item>(1, window, make, work, done);
    }
    for (bool more = true;;) {
        while (more && in_flight.size() < window) {
            std::unique_ptr<slot> next;
            if (spare.empty()) {
                next = std::make_unique<slot>();
            } else {
                next = std::move(spare.back());
                spare.pop_back();
                next->finished = false;
            }
            more = make(next->value);
            if (!more) {
                spare.push_back(std::move(next));
                break;
            }
            std::lock_guard<std::mutex> guard(shared.lock);
            shared.waiting.push_back(next.get());
            if (shared.idle > 0) shared.work_ready.notify_one();
            in_flight.push_back(std::move(next));
        }
        if (in_flight.empty()) return;
        slot* const front = in_flight.front().get();
        {
            std::unique_lock<std::mutex> guard(shared.lock);
            while (!front->finished) {
                // Items wait in the order they came, so this is the oldest
                // item when nobody has started it yet.
                slot* mine = shared.take_waiting();
                if (mine == nullptr) {
                    shared.awaited = front;
                    shared.awaited_finished.wait(guard);
                    shared.awaited = nullptr;
                    continue;
                }
                work_unlocked(guard, mine, own_worker);
            }
        }
        done(front->value);
        spare.push_back(std::move(in_flight.front()));
        in_flight.pop_front();
    }
}
