// moxpx: the library's operations from the command line.
//   moxpx OPERATION [options] INPUT... OUTPUT
//   moxpx OPERATION [options] [INPUT...] --batch DIR OUTDIR
//   moxpx list | info FILE... | OPERATION --help
// Exit status: 0 done, 1 the library reported a failure, 2 bad command
// line, 3 a file could not be read or written.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <limits>
#include <sstream>

#include "ops.h"
#include "picture.h"
#include "run.h"
#include "view.h"

namespace fs = std::filesystem;
using namespace moxcli;

namespace {

enum Exit { kDone = 0, kLibrary = 1, kUsage = 2, kFile = 3 };

const char kCommonHelp[] =
    "options of every operation:\n"
    "  --roi X,Y,W,H   work on this rectangle of every image\n"
    "  --roi2 X,Y,W,H  the second image's rectangle, when it differs from the first's\n"
    "                  (not with --threads)\n"
    "  --coi N         work on channel N only (1-based; 0: all)\n"
    "  --depth D       working depth of the images: 1u 8u 8s 16u 16s 32s (values saturate)\n"
    "  --dstDepth D    depth of the destination (default: the working depth)\n"
    "  --tile W,H      hand the images to the library in tiles of WxH through the tile\n"
    "                  call-back (multiples of 8)\n"
    "  --threads N     one destination tile per call on N threads (bands of 32 whole\n"
    "                  rows unless --tile)\n"
    "  --into FILE     the (first) destination starts as FILE instead of a copy of the\n"
    "                  input (or black), and keeps FILE's size\n"
    "  --channel N     write only channel N (1-based) of each result, as a grey picture\n"
    "  --alpha FILE    the first input gets FILE's first channel as its alpha channel\n"
    "  --plot FILE     the printed numbers as bars 200 rows high: a column per number,\n"
    "                  a channel per line, heights as square roots, the largest whole\n"
    "  --batch DIR OUTDIR  every image of DIR in place of the first input, results into\n"
    "                  OUTDIR under the same names\n";

std::string usageLine(const Op& op) {
  std::string s = std::string("moxpx ") + op.name + " [options]";
  for (const char* f : op.inputs) s += std::string(" ") + f;
  for (const char* f : op.outputs) s += std::string(" ") + f;
  return s;
}

void printHelp(const Op& op) {
  std::printf("%s: %s\n\nusage: %s\n\n", op.name, op.summary, usageLine(op).c_str());
  if (!op.args.empty()) {
    std::printf("arguments:\n");
    for (const ArgSpec& a : op.args) {
      std::printf("  --%-14s %s (default %s)\n", a.name, a.help, *a.preset ? a.preset : "none");
      if (!a.names.empty()) {
        std::string names;
        for (const Named& n : a.names) names.append(names.empty() ? "" : " ").append(n.name);
        std::printf("  %-16s names: %s%s\n", "", names.c_str(),
                    a.kind == Kind::Flags ? " (join with commas)" : "");
      }
    }
    std::printf("\n");
  }
  std::printf("%s\nfiles: %s\n\nexample:\n  %s\n", kCommonHelp, knownExtensions().c_str(),
              op.example);
}

void printMainHelp() {
  std::printf(
      "usage: moxpx OPERATION [options] INPUT... OUTPUT\n"
      "       moxpx OPERATION [options] [INPUT...] --batch DIR OUTDIR\n"
      "       moxpx list              every operation with its description\n"
      "       moxpx info FILE...      size, depth, channels and model of images\n"
      "       moxpx OPERATION --help  the operation's arguments and an example\n\n%s\n"
      "files: %s\n"
      "exit status: 0 done, 1 the library reported a failure, 2 bad command line,\n"
      "3 a file could not be read or written\n",
      kCommonHelp, knownExtensions().c_str());
}

[[noreturn]] void usage(const std::string& what) { throw UsageError(what); }

long long parseNumber(const std::string& text, const std::string& option, long long lo,
                      long long hi) {
  errno = 0;
  char* end = nullptr;
  const long long v = std::strtoll(text.c_str(), &end, 0);
  if (text.empty() || *end || errno == ERANGE || v < lo || v > hi)
    usage(option + " wants a whole number from " + std::to_string(lo) + " to " +
          std::to_string(hi) + ", not \"" + text + "\"");
  return v;
}

std::vector<long long> parseList(const std::string& text, const std::string& option, int count,
                                 long long lo) {
  std::vector<long long> out;
  std::stringstream in(text);
  for (std::string part; std::getline(in, part, ',');)
    out.push_back(parseNumber(part, option, lo, std::numeric_limits<int>::max()));
  if (int(out.size()) != count || text.empty() || text.back() == ',')
    usage(option + " wants " + std::to_string(count) + " numbers joined by commas, not \"" +
          text + "\"");
  return out;
}

long long parseNamed(const ArgSpec& a, const std::string& text) {
  const std::string option = std::string("--") + a.name;
  long long v = 0;
  std::stringstream in(text);
  int parts = 0;
  for (std::string part; std::getline(in, part, a.kind == Kind::Flags ? ',' : '\0'); ++parts) {
    std::string name = part;
    for (char& c : name) c = char(std::tolower(static_cast<unsigned char>(c)));
    const auto hit = std::find_if(a.names.begin(), a.names.end(),
                                  [&](const Named& n) { return name == n.name; });
    if (hit != a.names.end()) {
      v |= hit->value;
      continue;
    }
    if (part.empty() || !(std::isdigit(static_cast<unsigned char>(part[0])) || part[0] == '-')) {
      std::string names;
      for (const Named& n : a.names) names.append(names.empty() ? "" : ", ").append(n.name);
      usage(option + " takes " + names + " or a number, not \"" + part + "\"");
    }
    v |= parseNumber(part, option, std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
  }
  if (!parts) usage(option + " wants a value");
  return v;
}

// Whole numbers joined by commas, A:B standing for every number from A to B.
std::vector<int> parseWholeNumbers(const std::string& text, const std::string& option) {
  constexpr long long kLo = std::numeric_limits<int>::min(), kHi = std::numeric_limits<int>::max();
  constexpr long long kMost = 1 << 20;
  std::vector<int> out;
  if (text.empty()) return out;
  std::stringstream in(text + ",");
  for (std::string part; std::getline(in, part, ',');) {
    const auto colon = part.find(':');
    const long long from = parseNumber(part.substr(0, colon), option, kLo, kHi);
    const long long to =
        colon == std::string::npos ? from : parseNumber(part.substr(colon + 1), option, kLo, kHi);
    if (to < from || to - from >= kMost - (long long)out.size())
      usage(option + " wants A:B with A <= B and at most " + std::to_string(kMost) +
            " numbers in all, not \"" + part + "\"");
    for (long long v = from; v <= to; ++v) out.push_back(int(v));
  }
  return out;
}

void setArg(Args& args, const ArgSpec& a, const std::string& text) {
  const std::string option = std::string("--") + a.name;
  switch (a.kind) {
    case Kind::Int:
    case Kind::Tool:
      args.ints[a.name] = parseNumber(text, option, std::numeric_limits<int>::min(),
                                      std::numeric_limits<int>::max());
      break;
    case Kind::Unsigned:
      args.ints[a.name] = parseNumber(text, option, 0, std::numeric_limits<unsigned>::max());
      break;
    case Kind::Real: {
      char* end = nullptr;
      const double v = std::strtod(text.c_str(), &end);
      if (text.empty() || *end || !(std::fabs(v) <= 3.4e38))
        usage(option + " wants a number, not \"" + text + "\"");
      args.reals[a.name] = v;
      break;
    }
    case Kind::Flags:
    case Kind::Choice: args.ints[a.name] = parseNamed(a, text); break;
    case Kind::List: args.lists[a.name] = parseWholeNumbers(text, option); break;
    case Kind::Kernel:
      if (!text.empty()) args.texts[a.name].push_back(text);
      break;
  }
}

unsigned parseDepth(const std::string& text, const std::string& option) {
  const unsigned d = depthOfName(text);
  if (!d) usage(option + " takes 1u, 8u, 8s, 16u, 16s or 32s, not \"" + text + "\"");
  return d;
}

struct Command {
  const Op* op = nullptr;
  Options options;
  Args args;
  std::vector<std::string> files;
  std::string batchDir, batchOut;
  int channel = 0;  // 0: every channel of the results is written
  std::string alpha;  // a file whose first channel becomes the first input's alpha
  std::string plot;   // a file for a bar picture of the printed numbers
  bool help = false;
};

Command parse(int argc, char** argv) {
  Command cmd;
  cmd.op = findOperation(argv[1]);
  if (!cmd.op) usage(std::string("no operation \"") + argv[1] + "\" (moxpx list shows them)");
  const Op& op = *cmd.op;
  for (const ArgSpec& a : op.args) setArg(cmd.args, a, a.preset);
  Options& o = cmd.options;
  for (int i = 2; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "--help" || word == "-h") {
      cmd.help = true;
      continue;
    }
    if (word.rfind("--", 0) != 0 || word.size() == 2) {
      cmd.files.push_back(word);
      continue;
    }
    const std::string name = word.substr(2);
    const int wanted = name == "batch" ? 2 : 1;
    if (i + wanted >= argc) usage(word + " wants " + (wanted == 2 ? "two values" : "a value"));
    const std::string value = argv[i + 1];
    i += wanted;
    // The operation's own arguments come first: a conversion's --depth is
    // its destination's depth, not the working depth.
    const auto own = std::find_if(op.args.begin(), op.args.end(),
                                  [&](const ArgSpec& s) { return name == s.name; });
    if (own != op.args.end()) {
      setArg(cmd.args, *own, value);
    } else if (name == "roi") {
      const auto v = parseList(value, word, 4, 0);
      o.roi = true, o.roiX = int(v[0]), o.roiY = int(v[1]), o.roiW = int(v[2]), o.roiH = int(v[3]);
    } else if (name == "roi2") {
      const auto v = parseList(value, word, 4, 0);
      o.roi2 = true, o.roi2X = int(v[0]), o.roi2Y = int(v[1]), o.roi2W = int(v[2]), o.roi2H = int(v[3]);
    } else if (name == "into") {
      o.into = value;
    } else if (name == "plot") {
      cmd.plot = value;
    } else if (name == "alpha") {
      cmd.alpha = value;
    } else if (name == "channel") {
      cmd.channel = int(parseNumber(value, word, 1, 64));
    } else if (name == "coi") {
      o.coi = int(parseNumber(value, word, 0, 64));
    } else if (name == "depth") {
      o.depth = parseDepth(value, word);
    } else if (name == "dstDepth") {
      o.dstDepth = parseDepth(value, word);
    } else if (name == "tile") {
      const auto v = parseList(value, word, 2, 1);
      o.tileW = int(v[0]), o.tileH = int(v[1]);
    } else if (name == "threads") {
      o.threads = int(parseNumber(value, word, 1, 256));
    } else if (name == "batch") {
      cmd.batchDir = value, cmd.batchOut = argv[i];
    } else {
      usage("moxpx " + std::string(op.name) + " has no option " + word + " (moxpx " + op.name +
            " --help)");
    }
  }
  return cmd;
}

// Runs the operation on one set of files.
void runOnce(const Command& cmd, const std::vector<std::string>& inputs,
             const std::vector<std::string>& outputs) {
  const Op& op = *cmd.op;
  std::vector<Picture> pictures;
  for (const auto& path : inputs) pictures.push_back(readPicture(path));
  if (!cmd.alpha.empty() && !pictures.empty())
    pictures[0] = withAlpha(pictures[0], readPicture(cmd.alpha));
  std::string printed;
  std::vector<Picture> results = execute(op, pictures, cmd.options, cmd.args, &printed);
  std::fputs(printed.c_str(), stdout);
  if (!cmd.plot.empty()) writePicture(cmd.plot, bars(printed));
  for (std::size_t i = 0; i < outputs.size(); ++i) {
    Picture shown = op.view ? op.view(results[i], cmd.args, outputs[i]) : results[i];
    if (cmd.channel) shown = channelOf(shown, cmd.channel);
    if (op.save)
      op.save(outputs[i], shown, cmd.args);
    else
      writePicture(outputs[i], shown);
  }
}

int report(const std::exception& e, int status) {
  std::fprintf(stderr, "moxpx: %s\n", e.what());
  return status;
}

// Runs f and turns what it throws into a message and an exit status.
template <class F>
int guarded(F&& f) {
  try {
    f();
    return kDone;
  } catch (const LibraryFailure& e) {
    return report(e, kLibrary);
  } catch (const UsageError& e) {
    return report(e, kUsage);
  } catch (const FileError& e) {
    return report(e, kFile);
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "moxpx: out of memory\n");
    return kLibrary;
  } catch (const fs::filesystem_error& e) {
    return report(e, kFile);
  }
}

void progress(bool terminal, std::size_t done, std::size_t total, const std::string& name) {
  if (!terminal) {
    std::fprintf(stderr, "%zu/%zu %s\n", done, total, name.c_str());
    return;
  }
  constexpr int kWidth = 30;
  const int filled = total ? int(done * kWidth / total) : kWidth;
  std::fprintf(stderr, "\r[%s%s] %zu/%zu %-30.30s", std::string(filled, '#').c_str(),
               std::string(kWidth - filled, '.').c_str(), done, total, name.c_str());
  if (done == total) std::fputc('\n', stderr);
  std::fflush(stderr);
}

int runBatch(const Command& cmd) {
  const Op& op = *cmd.op;
  if (op.outputs.size() != 1)
    usage(std::string(op.name) + " writes " + std::to_string(op.outputs.size()) +
          " files, so it has no batch form");
  if (cmd.files.size() + 1 != op.inputs.size())
    usage("with --batch, moxpx " + std::string(op.name) + " takes " +
          std::to_string(op.inputs.size() - 1) + " input file(s) besides the folder");
  std::vector<fs::path> names;
  std::error_code ec;
  for (fs::directory_iterator it(cmd.batchDir, ec), end; !ec && it != end; it.increment(ec))
    if (it->is_regular_file() && knownImageName(it->path().string())) names.push_back(it->path());
  if (ec) throw FileError(cmd.batchDir, "cannot list the folder: " + ec.message());
  std::sort(names.begin(), names.end());
  fs::create_directories(cmd.batchOut);
  const bool terminal = isatty(STDERR_FILENO);
  int status = kDone;
  std::size_t done = 0;
  for (const fs::path& name : names) {
    std::vector<std::string> inputs{name.string()};
    inputs.insert(inputs.end(), cmd.files.begin(), cmd.files.end());
    const std::string out = (fs::path(cmd.batchOut) / name.filename()).string();
    const int s = guarded([&] { runOnce(cmd, inputs, {out}); });
    if (s != kDone) {
      if (terminal) std::fputc('\n', stderr);
      status = status == kDone ? s : status;
    }
    progress(terminal, ++done, names.size(), name.filename().string());
  }
  if (names.empty()) std::fprintf(stderr, "moxpx: no images in %s\n", cmd.batchDir.c_str());
  return status;
}

int info(int argc, char** argv) {
  if (argc < 3) usage("moxpx info wants at least one file");
  int status = kDone;
  for (int i = 2; i < argc; ++i) {
    const int s = guarded([&] {
      const Picture p = readPicture(argv[i]);
      std::printf("%s: %dx%d, depth %s, %d channel%s, %s\n", argv[i], p.width, p.height,
                  depthName(p.depth), p.channels, p.channels == 1 ? "" : "s",
                  modelOf(p.channels).c_str());
    });
    if (s != kDone) status = s;
  }
  return status;
}

int run(int argc, char** argv) {
  if (argc < 2) {
    printMainHelp();
    return kUsage;
  }
  const std::string first = argv[1];
  if (first == "--help" || first == "-h" || first == "help") {
    printMainHelp();
    return kDone;
  }
  if (first == "--version") {
    const MoxLibVersion* v = moxGetLibVersion();
    std::printf("moxpx %d.%d.%d (%s %s)\n", v->major, v->minor, v->build, v->Name, v->Version);
    return kDone;
  }
  if (first == "list") {
    for (const Op& op : operations()) std::printf("%-16s %s\n", op.name, op.summary);
    std::printf("%-16s %s\n", "info", "size, depth, channels and model of image files");
    return kDone;
  }
  if (first == "info") return info(argc, argv);
  const Command cmd = parse(argc, argv);
  if (cmd.help) {
    printHelp(*cmd.op);
    return kDone;
  }
  if (!cmd.batchDir.empty()) return runBatch(cmd);
  const Op& op = *cmd.op;
  const std::size_t want = op.inputs.size() + op.outputs.size();
  if (cmd.files.size() != want)
    usage("moxpx " + std::string(op.name) + " takes " + std::to_string(want) + " files, not " +
          std::to_string(cmd.files.size()) + ": " + usageLine(op));
  const std::vector<std::string> inputs(cmd.files.begin(), cmd.files.begin() + op.inputs.size());
  const std::vector<std::string> outputs(cmd.files.begin() + op.inputs.size(), cmd.files.end());
  runOnce(cmd, inputs, outputs);
  return kDone;
}

}  // namespace

int main(int argc, char** argv) {
  prepareThread();
  int status = kDone;
  const int s = guarded([&] { status = run(argc, argv); });
  return s != kDone ? s : status;
}
