#include "pipeline/reader/TaskQueue.h"

#include <QThread>

namespace bp {

void TaskQueue::post(Task task)
{
    m_tasks.push(std::move(task));
    runUntilEmpty();
}

void TaskQueue::enter()
{
    while (!tryTakeFloor()) {
        QThread::msleep(1);
    }
}

void TaskQueue::runPending()
{
    for (const Task &task : m_tasks.takeAll()) {
        task();
    }
}

void TaskQueue::leave()
{
    runPending();
    releaseFloor();
    runUntilEmpty();
}

bool TaskQueue::tryTakeFloor()
{
    return !m_floorTaken.exchange(true, std::memory_order_seq_cst);
}

void TaskQueue::releaseFloor()
{
    m_floorTaken.store(false, std::memory_order_seq_cst);
}

void TaskQueue::runUntilEmpty()
{
    // Looked at again after each release: a task pushed while the floor was held here has no other runner.
    while (!m_tasks.isEmpty() && tryTakeFloor()) {
        runPending();
        releaseFloor();
    }
}

} // namespace bp
