#include <deskaid/diag/symbol_engine.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "support/known_functions.h"
#include "support/scratch_dir.h"

#ifndef _WIN32
#include <dlfcn.h>
#endif

namespace {

constexpr uint32_t kNotInitialized = 1;
constexpr uint32_t kBadArgument = 87;

#define EXPECT_FAILS_WITH(call, code)       \
  do {                                      \
    EXPECT_FALSE(call);                     \
    EXPECT_EQ(engine.GetLastError(), code); \
  } while (0)

// An empty name gives 87 even before initialisation.
TEST(SymbolEngine, RefusesUntilInitialisedAndStaysBoundToItsFirstProcess) {
  CSymbolEngine engine;
  std::string name = "kept";
  uint64_t displacement = 7;
  uint32_t line = 9;
  SymModuleInfo info;
  EXPECT_FAILS_WITH(engine.SymbolFromAddress(ProbeAddress(), name, displacement), kNotInitialized);
  EXPECT_FALSE(engine.LineFromAddress(ProbeAddress(), name, line, displacement));
  EXPECT_FAILS_WITH(engine.LoadModule(SymCurrentProcess(), "image.exe", 0x400000, 0),
                    kNotInitialized);
  EXPECT_FAILS_WITH(engine.UnloadModule(0x400000), kNotInitialized);
  EXPECT_FAILS_WITH(engine.GetModuleInfo(0x400000, info), kNotInitialized);
  EXPECT_EQ(name + std::to_string(displacement) + std::to_string(line), "kept79");
  EXPECT_FAILS_WITH(engine.LoadModule(std::string(), 0x400000, 0), kBadArgument);

  ASSERT_TRUE(engine.Initialize(SymCurrentProcess(), nullptr, 0, 0));
  EXPECT_TRUE(engine.Initialize(SymCurrentProcess(), nullptr, 0, 0));
  EXPECT_EQ(engine.GetLastError(), kBadArgument) << "a repeated Initialize sets no error";
  for (SymHandle noFile : {SymHandle(nullptr), reinterpret_cast<SymHandle>(intptr_t(-1))})
    EXPECT_FAILS_WITH(engine.LoadModule(noFile, 0x400000, 0), kBadArgument);
  EXPECT_FAILS_WITH(engine.UnloadModule(0), kBadArgument);
  SymHandle other = reinterpret_cast<SymHandle>(static_cast<uintptr_t>(0x1234));
  EXPECT_FAILS_WITH(engine.Initialize(other, nullptr, 0, 0), kNotInitialized);
  EXPECT_EQ(engine.GetProcess(), SymCurrentProcess());
  engine.Cleanup();
  EXPECT_FALSE(engine.IsInitialized());
  EXPECT_TRUE(engine.Initialize(SymCurrentProcess(), nullptr, 0, 0));  // usable again
}

class CollectingEngine : public CSymbolEngine {
 public:
  void OnDebugInfo(const std::string& text) override { texts.push_back(text); }
  std::vector<std::string> texts;
};

// This test's own executable at 0x00400000, as the converter loads it; natively the C library too.
// With kSymOptDebug and the callback registered, the library's diagnostics reach the hook.
TEST(SymbolEngine, LoadsImagesAndResolvesTheirFunctionsAndLines) {
  CollectingEngine engine;
  const uint32_t saved = engine.AddOptions(kSymOptLoadLines | kSymOptDebug);
  ASSERT_TRUE(engine.Initialize(SymCurrentProcess(), nullptr, 0, 1));
  const uint64_t base = engine.LoadModule(OwnExecutablePath(), 0x400000, 0);
  ASSERT_EQ(base, 0x400000u) << "lastError " << engine.GetLastError();

  SymModuleInfo info;
  std::memset(&info, 0xA5, sizeof info);
  ASSERT_TRUE(engine.GetModuleInfo(base, info));
  EXPECT_EQ(info.BaseOfImage, base);
  EXPECT_TRUE(info.ImageSize > 0 && info.ModuleName[0] != '\0');
#ifdef _WIN32
  // The 1,672-byte record dbghelp has always accepted; newer headers' fields behind it are left.
  EXPECT_EQ(info.SizeOfStruct, 1672u);
  const auto* bytes = reinterpret_cast<const unsigned char*>(&info);
  for (size_t i = 1672; i < sizeof info; ++i) EXPECT_EQ(bytes[i], 0xA5) << i;
#else
  EXPECT_EQ(info.SizeOfStruct, sizeof info);
  EXPECT_EQ(info.ImageName, OwnExecutablePath());
  EXPECT_EQ(info.SymType, 7u) << "debug information";
  EXPECT_TRUE(info.NumSyms > 0 && info.LineNumbers && info.TypeInfo && info.GlobalSymbols);
#endif

  std::string name, file;
  uint64_t displacement = 99;
  uint32_t line = 0;
  for (uint64_t offset : {0, 3}) {
    ASSERT_TRUE(engine.SymbolFromAddress(ProbeAddress() + offset, name, displacement));
    EXPECT_EQ(name, kProbeName);
    EXPECT_EQ(displacement, offset);
    // The probe is one line: its code from the function's start on.
    ASSERT_TRUE(engine.LineFromAddress(ProbeAddress() + offset, file, line, displacement));
    EXPECT_NE(file.find("known_functions.cpp"), std::string::npos) << file;
    EXPECT_EQ(line, static_cast<uint32_t>(kProbeLine));
    EXPECT_LE(displacement, offset);
  }

#ifndef _WIN32
  // A second module; unloading it keeps the first.
  void* function = dlsym(RTLD_DEFAULT, "strverscmp");
  Dl_info c{};
  ASSERT_TRUE(function != nullptr && dladdr(function, &c) != 0);
  const uint64_t second = 0x20000000,
                 offset = static_cast<char*>(function) - static_cast<char*>(c.dli_fbase);
  ASSERT_EQ(engine.LoadModule(c.dli_fname, second, 0), second) << c.dli_fname;
  ASSERT_TRUE(engine.SymbolFromAddress(second + offset, name, displacement));
  EXPECT_NE(name.find("strverscmp"), std::string::npos) << name;
  EXPECT_EQ(displacement, 0u);
  EXPECT_TRUE(engine.UnloadModule(second));
  EXPECT_FALSE(engine.SymbolFromAddress(second + offset, name, displacement));
  EXPECT_TRUE(engine.SymbolFromAddress(ProbeAddress(), name, displacement)) << "the first stays";
#endif

  name = "kept";  // an address outside every module leaves the out-arguments alone
  displacement = 5;
  EXPECT_FALSE(engine.SymbolFromAddress(0x10, name, displacement));
  EXPECT_EQ(name + std::to_string(displacement), "kept5");
  EXPECT_TRUE(engine.GetLastError() != 0 && engine.GetLastError() != kNotInitialized);
  EXPECT_TRUE(engine.UnloadModule(base));
  EXPECT_FALSE(engine.SymbolFromAddress(ProbeAddress(), name, displacement));
  EXPECT_EQ(name, "kept");
  EXPECT_FALSE(engine.UnloadModule(base));
  engine.SetOptions(saved & ~(kSymOptLoadLines | kSymOptDebug));
#ifndef _WIN32  // Wine's debug-help library sends no diagnostics through the callback
  EXPECT_FALSE(engine.texts.empty());
#endif
}

TEST(SymbolEngine, CallbackPassesOnlyDebugInfoTextsToTheHook) {
  CollectingEngine engine;
  const char text[] = "loading symbols";
  const uint64_t data = reinterpret_cast<uintptr_t>(text);
  const uint64_t self = reinterpret_cast<uintptr_t>(&engine);
  EXPECT_TRUE(CSymbolEngine::SymbolCallback(nullptr, kSymActionDebugInfo, data, self));
  for (auto [action, passed, hook] : {std::tuple(1u, data, self),
                                      {kSymActionDebugInfo, 0, self},
                                      {kSymActionDebugInfo, data, 0}}) {
    EXPECT_FALSE(CSymbolEngine::SymbolCallback(nullptr, action, passed, hook));
  }
  EXPECT_EQ(engine.texts, std::vector<std::string>{text});
}

std::vector<std::string> FrameNames(CSymbolEngine& engine,
                                    const std::vector<StackFrameEntry>& frames) {
  std::vector<std::string> names(frames.size());
  uint64_t displacement = 0;
  for (size_t i = 0; i < frames.size(); ++i)
    engine.SymbolFromAddress(frames[i].pc, names[i], displacement);
  return names;
}

TEST(SymbolEngine, StackWalkStartsInsideItselfOrAtGivenRegistersAndSkipsWalkedFrames) {
  CSymbolEngine engine;
  ASSERT_TRUE(engine.Initialize(SymCurrentProcess(), nullptr, 1, 0));
  WalkResults walks = WalkThroughKnownChain(engine);
  ASSERT_GE(walks.skip0.size(), 5u);
  std::vector<std::string> names = FrameNames(engine, walks.skip0);
  EXPECT_NE(names[0].find("StackWalk"), std::string::npos) << names[0];
  EXPECT_EQ(std::vector<std::string>(names.begin() + 1, names.begin() + 4),
            (std::vector<std::string>{"WalkChainInner", "WalkChainMiddle", "WalkChainOuter"}));
  for (size_t i = 0; i + 1 < walks.skip0.size(); ++i) {
    EXPECT_NE(walks.skip0[i].pc, 0u);
    EXPECT_NE(walks.skip0[i].pc, walks.skip0[i].returnAddress);
    // Wine's walker leaves some return addresses 0; a known one must lead to the next frame.
    EXPECT_TRUE(walks.skip0[i].returnAddress == 0 ||
                walks.skip0[i].returnAddress == walks.skip0[i + 1].pc)
        << i;
  }
  // Skip 2 drops StackWalk's own frame and the innermost caller; a negative count drops nothing.
  ASSERT_EQ(walks.skip2.size(), walks.skip0.size() - 2);
  EXPECT_EQ(FrameNames(engine, walks.skip2)[0], "WalkChainMiddle");
  EXPECT_EQ(walks.skip2[0].pc, walks.skip0[2].pc);
  EXPECT_EQ(FrameNames(engine, walks.skipNegative), names);

#ifndef _WIN32  // from given registers the walk follows their frame chain
  std::vector<StackFrameEntry> frames = WalkFromOwnContext(engine);
  ASSERT_GE(frames.size(), 2u);
  EXPECT_EQ(FrameNames(engine, frames)[0] + " " + FrameNames(engine, frames)[1],
            "ContextChainInner ContextChainOuter");
  EXPECT_EQ(frames[0].returnAddress, frames[1].pc);
#endif
}

}  // namespace
