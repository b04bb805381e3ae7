// Emission cost of a signal with 1, 8 and 64 connections, beside boost::signals2 with
// the same receivers.
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/signals2/signal.hpp>

#include <quillon2/core/functor/signal.hpp>

namespace {

struct sink_t : quillon2::_internal::subscriber_base_t {
  long total = 0;
  void on_value(int value) { total += value; }
};

std::vector<std::unique_ptr<sink_t>> make_sinks(long count) {
  std::vector<std::unique_ptr<sink_t>> sinks;
  for (long i = 0; i < count; ++i) sinks.push_back(std::make_unique<sink_t>());
  return sinks;
}

void signal_emit_ours(benchmark::State& state) {
  auto sinks = make_sinks(state.range(0));
  quillon2::_internal::signal_t<int> signal;
  for (auto& sink : sinks) signal.connect(sink.get(), &sink_t::on_value);
  for (auto _ : state) signal(1);
  benchmark::DoNotOptimize(sinks.front()->total);
}

void signal_emit_boost_signals2(benchmark::State& state) {
  auto sinks = make_sinks(state.range(0));
  boost::signals2::signal<void(int)> signal;
  for (auto& sink : sinks) {
    sink_t* receiver = sink.get();
    signal.connect([receiver](int value) { receiver->on_value(value); });
  }
  for (auto _ : state) signal(1);
  benchmark::DoNotOptimize(sinks.front()->total);
}

}  // namespace

BENCHMARK(signal_emit_ours)->Name("signal_emit/ours")->Arg(1)->Arg(8)->Arg(64);
BENCHMARK(signal_emit_boost_signals2)->Name("signal_emit/boost_signals2")->Arg(1)->Arg(8)->Arg(64);
