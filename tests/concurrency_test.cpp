// Nothing is shared between calls: threads that pack and restore the very same inputs at once
// (the same caller records, the same packed bytes) get the bytes that one thread gets. The
// thread-sanitizer build runs this with its race detector.
#include <gtest/gtest.h>

#include <thread>

#include "frame/catalogue.h"
#include "samples.h"

namespace {

using namespace trdcomp::samples;

TEST(Concurrency, ThreadsGetTheBytesOneThreadGets) {
  struct Input {
    Answer answer;
    int nibble;
    Bytes packed;
  };
  std::vector<Input> inputs;
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e)
    for (int nibble : {0, 1}) {
      Input in{makeAnswer(e->number, nibble != 0, 3, e->number), nibble, {}};
      in.packed = packAnswer(in.answer.proc, in.answer.sections, 0, nibble << 4);
      inputs.push_back(std::move(in));
    }
  auto work = [&inputs] {
    Bytes all;
    for (const Input& in : inputs) {
      char* sections[5];
      for (int s = 0; s < 5; ++s)
        sections[s] =
            in.answer.sections[s].empty()
                ? nullptr
                : reinterpret_cast<char*>(const_cast<unsigned char*>(in.answer.sections[s].data()));
      tagANS_Proc proc = in.answer.proc;
      Bytes packed(static_cast<std::size_t>(CTrdCompData::PackAnsBound(&proc, in.nibble << 4)));
      int length = 0;
      CTrdCompData::PackAns2008(
          reinterpret_cast<char*>(packed.data()), static_cast<int>(packed.size()), length, &proc,
          sections[0], sections[1], sections[2], sections[3], sections[4], 0, in.nibble << 4);
      all.insert(all.end(), packed.begin(), packed.begin() + length);
      char* out = nullptr;
      int restoredLength = 0;
      CTrdCompData::RestoreAns2008(
          reinterpret_cast<char*>(const_cast<unsigned char*>(in.packed.data())),
          static_cast<int>(in.packed.size()), &out, restoredLength, 0);
      if (out) all.insert(all.end(), out, out + restoredLength);
      CTrdCompData::ReleaseAnsData(out);
    }
    return all;
  };
  const Bytes expected = work();
  std::vector<Bytes> results(4);
  std::vector<std::thread> threads;
  for (Bytes& r : results) threads.emplace_back([&r, &work] { r = work(); });
  for (std::thread& t : threads) t.join();
  for (const Bytes& r : results) EXPECT_TRUE(r == expected);
}

}  // namespace
