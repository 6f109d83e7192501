#pragma once

#include "common/detail/HandoverQueue.h"

#include <atomic>
#include <functional>

namespace bp {

/// Runs tasks one at a time for an object that a loop on another thread works on.
///
/// While the loop holds the floor (between enter() and leave()) a posted task waits until the loop calls runPending();
/// otherwise post() runs it at once, on the caller's thread. Either way tasks run in the order in which they were
/// posted, never two at a time, and everything that one of them wrote is seen by the next. No thread waits for another,
/// except enter() for a task that is just running. A task that posts another has it run after itself.
class TaskQueue
{
public:
    using Task = std::function<void()>;

    /// Any thread.
    void post(Task task);
    /// The loop takes the floor.
    void enter();
    /// Runs what waits. Only between enter() and leave(), on the loop's thread.
    void runPending();
    /// The loop gives the floor back; what was posted meanwhile runs first.
    void leave();

private:
    bool tryTakeFloor();
    void releaseFloor();
    void runUntilEmpty();

    HandoverQueue<Task> m_tasks;
    std::atomic<bool> m_floorTaken{false};
};

} // namespace bp
