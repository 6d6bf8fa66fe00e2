// How fast requests travel through the receiver machinery and back, and how
// fast listener events reach their listener, on the main loop.
#include "MainLoopRunner.h"

#include <Commons/EventListener.h>
#include <Commons/EventReceiver.h>
#include <Commons/ListenerEvent.h>
#include <Commons/ListenerEventEmitter.h>

#include <benchmark/benchmark.h>

#include <thread>

using namespace WrtDeviceApis::Commons;

namespace {

class EventPing : public IEvent<EventPing> {
public:
    int value = 0;
};

class Pinger : public EventRequestReceiver<EventPing>, public EventAnswerReceiver<EventPing> {
public:
    Pinger()
        : EventRequestReceiver<EventPing>(ThreadEnum::NULL_THREAD),
          EventAnswerReceiver<EventPing>(ThreadEnum::NULL_THREAD) {}
    long answers = 0;

protected:
    void OnRequestReceived(const DPL::SharedPtr<EventPing>& event) override { event->value += 1; }
    void OnAnswerReceived(const DPL::SharedPtr<EventPing>&) override { ++answers; }
};

class EventTick : public ListenerEvent<EventTick> {
public:
    int value = 0;
};

class TickListener : public EventListener<EventTick> {
public:
    TickListener() : EventListener<EventTick>(ThreadEnum::NULL_THREAD) {}
    long ticks = 0;
    void onAnswerReceived(const DPL::SharedPtr<EventTick>&) override { ++ticks; }
};

// Posts `batch` asynchronous requests and runs the loop until every answer is in.
void BM_AsynchronousRoundTrip(benchmark::State& state) {
    Pinger pinger;
    const long batch = state.range(0);
    for (auto _ : state) {
        const long target = pinger.answers + batch;
        for (long i = 0; i < batch; ++i) {
            auto event = std::make_shared<EventPing>();
            event->setForAsynchronousCall(&pinger);
            pinger.PostRequest(event);
        }
        KvTest::runMainLoopUntil([&] { return pinger.answers >= target; });
    }
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(BM_AsynchronousRoundTrip)->Arg(1)->Arg(100)->Arg(1000);

// Emits from a worker thread and runs the loop until the listener has them all.
void BM_ListenerEmissionFromWorker(benchmark::State& state) {
    TickListener listener;
    ListenerEventEmitter<EventTick> emitter;
    emitter.setListener(&listener);
    const long batch = state.range(0);
    for (auto _ : state) {
        const long target = listener.ticks + batch;
        std::thread worker([&] {
            for (long i = 0; i < batch; ++i) {
                emitter.emit(std::make_shared<EventTick>());
            }
        });
        KvTest::runMainLoopUntil([&] { return listener.ticks >= target; });
        worker.join();
    }
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(BM_ListenerEmissionFromWorker)->Arg(100)->Arg(1000);

}  // namespace

BENCHMARK_MAIN();
