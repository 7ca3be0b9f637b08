// Judges what is kept of earlier runs, and as many changed copies of it as are wished:
//   fuzz_tests FUZZ_FOLDER RUNS SEED [TARGET]
// For systems without libFuzzer and for every run of the tests. One seed gives the same
// inputs everywhere.
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string_view>
#include <vector>

#include "fuzz.h"

namespace {

using zarn::fuzz::Target;
using Inputs = std::vector<std::string>;

Inputs inputsBelow(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> files;
  if (std::filesystem::is_directory(folder))
    for (const auto& entry : std::filesystem::directory_iterator(folder)) files.push_back(entry.path());
  std::ranges::sort(files);  // each system lists them in an order of its own
  Inputs inputs;
  for (const auto& path : files) {
    std::ifstream file(path, std::ios::binary);
    inputs.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return inputs;
}

class Mutator {
 public:
  Mutator(const Inputs& inputs, std::uint64_t seed) : inputs_(inputs), random_(seed) {}

  std::string next() {
    std::string text = any();
    for (std::size_t changes = 1 + below(6); changes > 0; --changes) change(text);
    return text;
  }

 private:
  // The library's distributions differ between systems.
  std::size_t below(std::size_t end) { return random_() % end; }
  const std::string& any() { return inputs_[below(inputs_.size())]; }

  void change(std::string& text) {
    const std::size_t at = below(text.size() + 1), length = 1 + below(8);
    const std::string& other = any();
    const std::size_t from = below(other.size() + 1);
    switch (below(8)) {
      case 0:
        text.insert(at, 1, static_cast<char>(random_()));
        break;
      case 1:
        text.erase(at, length);
        break;
      case 2:
        text.insert(at, std::string(text, at / 2, length));
        break;
      case 3:
        text.insert(at, other, from, length * 4);
        break;
      case 4:
        text.replace(at, std::string::npos, other, from);
        break;
      case 5:
        text.replace(at, 1, 1, "\0\x01\x7f\x80\xff \n\\"[length - 1]);
        break;
      default:
        if (at < text.size()) text[at] = static_cast<char>(text[at] ^ 1 << (length - 1));
    }
  }

  const Inputs& inputs_;
  std::mt19937_64 random_;
};

void judge(const Target& target, const std::string& input) {
  Target::judged = &input;
  target.judge(input);
}

bool replay(const Target& target, const std::filesystem::path& folder, unsigned long runs,
            unsigned long seed) {
  const auto begin = std::chrono::steady_clock::now();
  Inputs inputs = inputsBelow(folder / "corpus" / target.name);
  const std::size_t corpus = inputs.size();
  std::ranges::move(inputsBelow(folder / "regressions" / target.name), std::back_inserter(inputs));
  for (const std::string& input : inputs) judge(target, input);
  Mutator mutator(inputs, seed);
  for (unsigned long run = 0; run < runs && !inputs.empty(); ++run) judge(target, mutator.next());
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  std::printf("%-20s %4zu of the corpus, %3zu regressions, %8lu changed ones of seed %lu, %.1f s\n",
              target.name, corpus, inputs.size() - corpus, runs, seed, taken.count());
  return corpus > 0;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 4) return 2;
  const std::string_view only = count > 4 ? arguments[4] : "";
  bool isWhole = false;
  for (const Target* target = Target::first; target != nullptr; target = target->next) {
    if (!only.empty() && only != target->name) continue;
    std::printf("%s\n", target->name);
    isWhole = replay(*target, arguments[1], std::stoul(arguments[2]), std::stoul(arguments[3]));
    if (!isWhole) break;  // without a corpus nothing was shown
  }
  return isWhole ? 0 : 1;
}
