// CBigInt and CModPower beside GMP (and Boost.Multiprecision for the modular powers).
#include <benchmark/benchmark.h>
#include <gmp.h>

#include <boost/multiprecision/cpp_int.hpp>
#include <random>
#include <string>

#include <deskaid/math/bigint.h>
#include <deskaid/math/modpower.h>
#include "ratio_reporter.h"
#include "shipped/shipped_work.h"

namespace {

using boost::multiprecision::cpp_int;

CBigInt Big(const std::string& hex) {
  CBigInt x;
  x.Parse(hex.c_str(), 16);
  x.Normalize();
  return x;
}

struct Mpz {
  mpz_t v;
  explicit Mpz(const std::string& hex) { mpz_init_set_str(v, hex.c_str(), 16); }
  Mpz() { mpz_init(v); }
  ~Mpz() { mpz_clear(v); }
};

cpp_int Boost(const std::string& hex) { return cpp_int("0x" + hex); }

void PowModDeskaid(benchmark::State& state, int bits) {
  const std::string b = shipped::RandomHex(bits, 1, false), e = shipped::RandomHex(bits, 2, false),
                    n = shipped::RandomHex(bits, 3, true);
  CModPower power;
  power.SetExponent(Big(e));
  power.SetModulus(Big(n));
  const CBigInt base0 = Big(b) % power.m_Modulus;
  for (auto _ : state) {
    CBigInt base = base0;
    benchmark::DoNotOptimize(power.PowMod(base));
  }
}

void PowModGmp(benchmark::State& state, int bits) {
  Mpz b(shipped::RandomHex(bits, 1, false)), e(shipped::RandomHex(bits, 2, false)),
      n(shipped::RandomHex(bits, 3, true)), r;
  mpz_mod(b.v, b.v, n.v);
  for (auto _ : state) {
    mpz_powm(r.v, b.v, e.v, n.v);
    benchmark::DoNotOptimize(r.v);
  }
}

void PowModBoost(benchmark::State& state, int bits) {
  cpp_int b = Boost(shipped::RandomHex(bits, 1, false)),
          e = Boost(shipped::RandomHex(bits, 2, false)),
          n = Boost(shipped::RandomHex(bits, 3, true));
  b %= n;
  for (auto _ : state) {
    cpp_int r = boost::multiprecision::powm(b, e, n);
    benchmark::DoNotOptimize(r);
  }
}

void MulDeskaid(benchmark::State& state) {
  const CBigInt a = Big(shipped::MulOperand(0)),
                b = Big(shipped::MulOperand(1));
  for (auto _ : state) benchmark::DoNotOptimize(a * b);
}

void MulGmp(benchmark::State& state) {
  Mpz a(shipped::MulOperand(0)), b(shipped::MulOperand(1)), r;
  for (auto _ : state) {
    mpz_mul(r.v, a.v, b.v);
    benchmark::DoNotOptimize(r.v);
  }
}

void DivDeskaid(benchmark::State& state) {
  const CBigInt a = Big(shipped::DividendHex()),
                b = Big(shipped::DivisorHex());
  for (auto _ : state) benchmark::DoNotOptimize(a / b);
}

void DivGmp(benchmark::State& state) {
  Mpz a(shipped::DividendHex()), b(shipped::DivisorHex()), r;
  for (auto _ : state) {
    mpz_tdiv_q(r.v, a.v, b.v);
    benchmark::DoNotOptimize(r.v);
  }
}

void TextDeskaid(benchmark::State& state) {
  CBigInt a(shipped::RandomDecimal(shipped::kTextDigits).c_str());
  for (auto _ : state) benchmark::DoNotOptimize(a.GetString(10));
}

void TextGmp(benchmark::State& state) {
  Mpz a;
  mpz_set_str(a.v, shipped::RandomDecimal(shipped::kTextDigits).c_str(), 10);
  std::string buffer(100010, '\0');
  for (auto _ : state) benchmark::DoNotOptimize(mpz_get_str(&buffer[0], 10, a.v));
}

void ParseDeskaid(benchmark::State& state) {
  const std::string text = shipped::RandomDecimal(shipped::kTextDigits);
  for (auto _ : state) {
    CBigInt a(text.c_str());
    benchmark::DoNotOptimize(a.m_pData);
  }
}

void ParseGmp(benchmark::State& state) {
  const std::string text = shipped::RandomDecimal(shipped::kTextDigits);
  Mpz a;
  for (auto _ : state) {
    mpz_set_str(a.v, text.c_str(), 10);
    benchmark::DoNotOptimize(a.v);
  }
}

const bool registered = [] {
  for (int bits : {1024, 2048, 4096}) {
    const std::string name = "powmod_" + std::to_string(bits);
    benchmark::RegisterBenchmark((name + "/deskaid").c_str(), PowModDeskaid, bits)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((name + "/gmp").c_str(), PowModGmp, bits)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((name + "/boost").c_str(), PowModBoost, bits)
        ->Unit(benchmark::kMillisecond);
  }
  benchmark::RegisterBenchmark("mul_4096x4096/deskaid", MulDeskaid)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("mul_4096x4096/gmp", MulGmp)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("div_8192by4096/deskaid", DivDeskaid)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("div_8192by4096/gmp", DivGmp)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("text_100000digits/deskaid", TextDeskaid)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("text_100000digits/gmp", TextGmp)->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("parse_100000digits/deskaid", ParseDeskaid)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("parse_100000digits/gmp", ParseGmp)->Unit(benchmark::kMillisecond);
  return true;
}();

}  // namespace

DESKAID_BENCH_MAIN()
