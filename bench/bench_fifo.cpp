// How fast an output's FIFO hands elements from a writer thread to reader
// threads, side by side with what a user would otherwise pick: a bounded
// queue of pointers behind a mutex and two condition variables, and a
// lock-free single-producer single-consumer queue (one per reader for a
// broadcast). The FIFO uses its real waits: a reader with nothing to read
// blocks in the multi-event wait of the split read, a writer held by a
// never-skipping reader blocks on its event. The baselines block on their
// condition variables, or spin with a yield (the lock-free queue has no wait
// of its own).
//
// Every case moves batches of numbered elements; items/s counts elements
// written. A FifoReader may lose elements to a faster writer: its counter
// "received" tells which fraction it got.
#include <benchmark/benchmark.h>

#include <boost/lockfree/spsc_queue.hpp>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "Engine.h"
#include "FifoReaders.h"
#include "fifo_reading.h"
#include "test_module.h"
#include "test_output.h"
#include "veld_output_impl.h"
#include "veld_output_writing.h"

namespace {

const long kBatch = 20000;
const int kCapacity = 16;  // ring slots, queue capacity

// ---------------------------------------------------------------------------
// The FIFO of an output

class Output {
public:
    Output() : engine(QuietEngine())
    {
        output.reset(new VELDOutputImplementation("m.o", OutputDefinition(VELD::Integer64, 1, kCapacity),
                                                  &module.death));
        output->AllocOutputBuffer(1, true);
    }
    TestFifo& Fifo() { return *output->monitor; }
    void Write(long n)
    {
        VELDIOElt* element = VELDOutputWriting::StartWriting(module.owner, *output);
        *element->Integer64(0) = n;
        VELDOutputWriting::StopWriting(module.owner, element, false);
    }

    veldor::Engine engine;
    TestModule module;
    std::unique_ptr<VELDOutputImplementation> output;
};

// One writer, `readers` readers of `type`.
void FifoHandOff(benchmark::State& state, int type)
{
    const int readers = static_cast<int>(state.range(0));
    Output out;
    std::vector<int> numbers;
    for (int i = 0; i < readers; ++i) numbers.push_back(veldor::FifoReaders::Register(out.Fifo(), type, 1));
    long base = 0;
    double received = 0;
    for (auto _ : state) {
        const long last = base + kBatch;
        std::vector<long> counts(static_cast<size_t>(readers), 0);
        std::vector<std::thread> threads;
        for (int i = 0; i < readers; ++i) {
            threads.emplace_back([&, i] {
                TestFifo& fifo = out.Fifo();
                for (long n = 0; n < last;) {
                    VELDListIterator slot = BlockingRead(fifo, numbers[i], nullptr);
                    n = *fifo[slot].Integer64(0);
                    fifo.StopReading(numbers[i], slot);
                    ++counts[i];
                }
            });
        }
        for (long n = base + 1; n <= last; ++n) out.Write(n);
        for (std::thread& t : threads) t.join();
        for (long c : counts) received += static_cast<double>(c) / kBatch;
        base = last;
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
    state.counters["received"] = received / (static_cast<double>(state.iterations()) * readers);
}

void Fifo_FifoReader(benchmark::State& state) { FifoHandOff(state, VELD::FifoReader); }
void Fifo_NeverSkippingReader(benchmark::State& state) { FifoHandOff(state, VELD::NeverSkippingReader); }

// ---------------------------------------------------------------------------
// Baselines

// A bounded ring of pointers: the writer waits while it is full, the reader
// while it is empty.
class MutexQueue {
public:
    void Push(void* p)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_notFull.wait(lock, [&] { return m_count < kCapacity; });
        m_items[(m_first + m_count++) % kCapacity] = p;
        m_notEmpty.notify_one();
    }
    void* Pop()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_notEmpty.wait(lock, [&] { return m_count > 0; });
        void* p = m_items[m_first];
        m_first = (m_first + 1) % kCapacity;
        --m_count;
        m_notFull.notify_one();
        return p;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_notFull, m_notEmpty;
    void* m_items[kCapacity] = {};
    int m_first = 0;
    int m_count = 0;
};

class SpscQueue {
public:
    void Push(void* p)
    {
        while (!m_queue.push(p)) std::this_thread::yield();
    }
    void* Pop()
    {
        void* p;
        while (!m_queue.pop(p)) std::this_thread::yield();
        return p;
    }

private:
    boost::lockfree::spsc_queue<void*, boost::lockfree::capacity<kCapacity>> m_queue;
};

// One queue per reader: the writer hands each element to every one.
template <class Queue>
void QueueHandOff(benchmark::State& state)
{
    const int readers = static_cast<int>(state.range(0));
    std::vector<std::unique_ptr<Queue>> queues;
    for (int i = 0; i < readers; ++i) queues.emplace_back(new Queue());
    long base = 0;
    for (auto _ : state) {
        const long last = base + kBatch;
        std::vector<std::thread> threads;
        for (int i = 0; i < readers; ++i) {
            threads.emplace_back([&, i] {
                for (long n = 0; n < last;) n = reinterpret_cast<long>(queues[i]->Pop());
            });
        }
        for (long n = base + 1; n <= last; ++n)
            for (auto& queue : queues) queue->Push(reinterpret_cast<void*>(n));
        for (std::thread& t : threads) t.join();
        base = last;
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

void Baseline_MutexQueue(benchmark::State& state) { QueueHandOff<MutexQueue>(state); }
void Baseline_SpscQueue(benchmark::State& state) { QueueHandOff<SpscQueue>(state); }

BENCHMARK(Fifo_FifoReader)->Arg(1)->Arg(8)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Fifo_NeverSkippingReader)->Arg(1)->Arg(8)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Baseline_MutexQueue)->Arg(1)->Arg(8)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Baseline_SpscQueue)->Arg(1)->Arg(8)->UseRealTime()->Unit(benchmark::kMillisecond);

// ---------------------------------------------------------------------------
// One uncontended write and read, on one thread

void Fifo_WriteAndRead(benchmark::State& state)
{
    Output out;
    int reader = veldor::FifoReaders::Register(out.Fifo(), VELD::FifoReader, 1);
    long n = 0;
    for (auto _ : state) {
        out.Write(++n);
        VELDListIterator slot = TryRead(out.Fifo(), reader);
        benchmark::DoNotOptimize(*out.Fifo()[slot].Integer64(0));
        out.Fifo().StopReading(reader, slot);
    }
}

template <class Queue>
void QueueWriteAndRead(benchmark::State& state)
{
    Queue queue;
    long n = 0;
    for (auto _ : state) {
        queue.Push(reinterpret_cast<void*>(++n));
        benchmark::DoNotOptimize(queue.Pop());
    }
}

void Baseline_MutexQueue_WriteAndRead(benchmark::State& state) { QueueWriteAndRead<MutexQueue>(state); }
void Baseline_SpscQueue_WriteAndRead(benchmark::State& state) { QueueWriteAndRead<SpscQueue>(state); }

BENCHMARK(Fifo_WriteAndRead);
BENCHMARK(Baseline_MutexQueue_WriteAndRead);
BENCHMARK(Baseline_SpscQueue_WriteAndRead);

}  // namespace

BENCHMARK_MAIN();
