// remasterMedium: the installer's answer file and kernel arguments put on
// a copy of its own disc. The menus are read from the image, rewritten in
// memory and written to a scratch area with the answer file; the mastering
// tool then writes the new image from the old one with those files mapped
// in and the old boot equipment replayed, and its boot report is compared
// with the old one's before the image takes its place.
#include "lib/medium/remaster.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>

#include "guestprep/medium.h"
#include "lib/medium/description.h"
#include "lib/medium/medium_files.h"
#include "lib/medium/remaster_internal.h"
#include "platform/abi.h"
#include "platform/hostio.h"
#include "platform/strutil.h"

namespace gp::medium {
using namespace gp::str;
namespace {

constexpr size_t kMaxMenuBytes = 256u << 10;
constexpr uint64_t kMaxEfiImageBytes = 64u << 20;
constexpr size_t kMaxWalkDirs = 200;
constexpr size_t kMaxWalkDepth = 4;
constexpr size_t kMaxDirEntries = 1024;

// Package trees hold no boot menu and would spend the walk's bounds.
bool skippedDirectory(const std::string &name) {
  for (const char *skip : {"pool", "dists", "Packages", "BaseOS", "AppStream",
                           "repodata", "suse", "casper", "live"}) {
    if (equalsCaseless(name, skip)) {
      return true;
    }
  }
  return false;
}

std::string baseName(const std::string &path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Every grub.cfg of the disc, found by a bounded breadth-first walk.
std::vector<std::string> grubConfigsOnDisc(MediumFiles &files) {
  std::vector<std::string> out;
  std::deque<std::pair<std::string, size_t>> dirs{{"", 0}};
  size_t listed = 0;
  while (!dirs.empty() && listed < kMaxWalkDirs) {
    auto [dir, depth] = dirs.front();
    dirs.pop_front();
    ++listed;
    for (const FoundFile &f : files.list(dir, kMaxDirEntries)) {
      std::string name = baseName(f.path);
      if (f.isDirectory) {
        if (depth + 1 < kMaxWalkDepth && !skippedDirectory(name)) {
          dirs.emplace_back(f.path, depth + 1);
        }
      } else if (equalsCaseless(name, "grub.cfg")) {
        out.push_back(f.path);
      }
    }
  }
  return out;
}

struct Mapping {
  std::string host, iso;
};

// What a remaster changes: files mapped over the disc's own, and appended
// partitions replaced.
struct Changes {
  std::vector<Mapping> maps;
  std::vector<std::pair<AppendedPartition, std::string>> partitions;
  bool installerEntry = false;
};

class Remaster {
 public:
  Remaster(const std::string &image, const std::string &out,
           const ProgressFn &progress, std::string &error)
      : image_(image), out_(out), progress_(progress), error_(error) {}

  RemasterStatus run(const std::string &answerText);

 private:
  void say(const std::string &line) {
    if (progress_) {
      progress_(line);
    }
  }
  RemasterStatus fail(const std::string &why) {
    error_ = why;
    return RemasterStatus::Failed;
  }
  bool addFile(const std::string &isoPath, std::string_view text);
  bool rewriteIsolinux(MediumFiles &files, const Described &d);
  bool rewriteGrubMenus(MediumFiles &walk, MediumFiles &files);
  bool rewriteEfiImages(MediumFiles &files);
  bool rewriteEfiPartitions();
  bool copyPartition(const AppendedPartition &part, const std::string &to);
  std::string writeCommand(const std::string &tmpOut) const;

  const std::string &image_;
  const std::string &out_;
  const ProgressFn &progress_;
  std::string &error_;
  std::vector<std::string> args_;
  ScratchArea scratch_;
  BootReport before_;
  Changes changes_;
  int fileCount_ = 0;
};

bool Remaster::addFile(const std::string &isoPath, std::string_view text) {
  std::string host = scratch_.file("file-" + std::to_string(fileCount_++) +
                                   "-" + baseName(isoPath));
  if (!scratch_.write(host, text)) {
    error_ =
        std::string("cannot write a scratch file: ") + std::strerror(errno);
    return false;
  }
  changes_.maps.push_back({host, isoPath});
  return true;
}

bool Remaster::rewriteIsolinux(MediumFiles &files, const Described &d) {
  if (d.facts.boot.bios != std::string("isolinux") ||
      !d.facts.boot.biosConfig) {
    return true;
  }
  std::vector<MenuFile> chain = collectIsolinuxChain(
      *d.facts.boot.biosConfig,
      [&files](const std::string &path) -> std::optional<std::string> {
        return files.read(path, kMaxMenuBytes);
      });
  MenuResult r = rewriteIsolinuxChain(chain, args_);
  if (r.edit == MenuEdit::Refused) {
    error_ = image_ + ": " + r.reason;
    return false;
  }
  if (r.edit != MenuEdit::Changed) {
    return true;
  }
  changes_.installerEntry = true;
  for (const MenuFile &f : chain) {
    if (!f.changed) {
      continue;
    }
    std::optional<FoundFile> found = files.find(f.path);
    std::string spelled = found ? found->path : f.path;
    say("rewriting " + spelled);
    if (!addFile("/" + spelled, f.text)) {
      return false;
    }
  }
  return true;
}

// The walk and the reads have budgets of their own, so that a disc with
// many directories still has its menus read.
bool Remaster::rewriteGrubMenus(MediumFiles &walk, MediumFiles &files) {
  for (const std::string &path : grubConfigsOnDisc(walk)) {
    std::optional<std::string> text = files.read(path, kMaxMenuBytes);
    if (!text) {
      error_ = image_ + ": " + path + " cannot be read";
      return false;
    }
    MenuResult r = rewriteGrubConfig(*text, args_);
    if (r.edit == MenuEdit::Refused) {
      error_ = image_ + ": " + path + ": " + r.reason;
      return false;
    }
    if (r.edit == MenuEdit::Changed) {
      changes_.installerEntry = true;
      say("rewriting " + path);
      if (!addFile("/" + path, *text)) {
        return false;
      }
    }
  }
  return true;
}

bool Remaster::copyPartition(const AppendedPartition &part,
                             const std::string &to) {
  UniqueFd in = openUntrustedFile(image_.c_str(), O_RDONLY);
  UniqueFd out = openFile(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (!in.valid() || !out.valid()) {
    return false;
  }
  std::string buf(1u << 20, '\0');
  uint64_t offset = part.first * 512, end = (part.last + 1) * 512;
  while (offset < end) {
    size_t chunk =
        static_cast<size_t>(std::min<uint64_t>(buf.size(), end - offset));
    ssize_t got =
        preadFull(in.get(), buf.data(), chunk, static_cast<off_t>(offset));
    if (got != static_cast<ssize_t>(chunk) ||
        !writeFull(out.get(), buf.data(), chunk)) {
      return false;
    }
    offset += chunk;
  }
  return out.reset() == 0;
}

// Where mtools reads an EFI image inside the disc without a copy: the
// disc at the image's byte offset; "" when the path would be misread.
std::string imageInPlace(const std::string &image, uint64_t offset) {
  if (image.find("@@") != std::string::npos) {
    return "";
  }
  return image + "@@" + std::to_string(offset);
}

bool Remaster::rewriteEfiImages(MediumFiles &files) {
  int n = 0;
  for (const std::string &source : before_.efiSources) {
    if (source.empty() || source[0] != '/') {
      continue;  // an appended partition (below) or an interval of the disc
    }
    std::optional<FoundFile> found = files.find(source.substr(1));
    if (found && found->size > kMaxEfiImageBytes) {
      continue;
    }
    // An image the file tree shows is read in place, and copied only when
    // one of its menus changes; a hidden one must be extracted to be read.
    std::string inPlace =
        found && !found->isDirectory
            ? imageInPlace(image_, uint64_t{found->extent} * 2048)
            : "";
    std::vector<EfiConfigEdit> edits;
    std::string why;
    if (!inPlace.empty() &&
        !planEfiImage(inPlace, args_, scratch_, edits, why)) {
      error_ = image_ + ": " + source + ": " + why;
      return false;
    }
    if (!inPlace.empty() && edits.empty()) {
      continue;
    }
    std::string copy = scratch_.file("efi-" + std::to_string(n++) + ".img");
    std::string output;
    if (!runTool("xorriso -osirrox on -indev " + shellWord(image_) +
                     " -extract " + shellWord(source) + " " + shellWord(copy),
                 scratch_, &output)) {
      error_ = image_ + ": the EFI image " + source + " cannot be read";
      return false;
    }
    // The copy keeps the disc's read-only mode; mtools writes into it.
    UniqueFd fd = openFile(copy.c_str(), O_RDONLY);
    if (!fd.valid() || hostOps().fchmod(fd.get(), 0600) != 0) {
      error_ = image_ + ": the EFI image " + source + " cannot be copied";
      return false;
    }
    if (inPlace.empty() && !planEfiImage(copy, args_, scratch_, edits, why)) {
      error_ = image_ + ": " + source + ": " + why;
      return false;
    }
    if (edits.empty()) {
      continue;
    }
    if (!applyEfiImage(copy, edits, scratch_, why)) {
      error_ = image_ + ": " + source + ": " + why;
      return false;
    }
    changes_.installerEntry = true;
    for (const EfiConfigEdit &edit : edits) {
      say("rewriting " + source.substr(1) + ":" + edit.config);
    }
    changes_.maps.push_back({copy, source});
  }
  return rewriteEfiPartitions();
}

bool Remaster::rewriteEfiPartitions() {
  for (const AppendedPartition &part : before_.partitions) {
    if (!part.isEfi() || part.last < part.first ||
        (part.last - part.first + 1) * 512 > kMaxEfiImageBytes) {
      continue;
    }
    const std::string label =
        "appended partition " + std::to_string(part.number);
    std::string inPlace = imageInPlace(image_, part.first * 512);
    std::vector<EfiConfigEdit> edits;
    std::string why;
    if (!inPlace.empty() &&
        !planEfiImage(inPlace, args_, scratch_, edits, why)) {
      error_ = image_ + ": " + label + ": " + why;
      return false;
    }
    if (!inPlace.empty() && edits.empty()) {
      continue;
    }
    std::string copy =
        scratch_.file("partition-" + std::to_string(part.number) + ".img");
    if (!copyPartition(part, copy)) {
      error_ =
          image_ + ": " + label + " cannot be copied: " + std::strerror(errno);
      return false;
    }
    if (inPlace.empty() && !planEfiImage(copy, args_, scratch_, edits, why)) {
      error_ = image_ + ": " + label + ": " + why;
      return false;
    }
    if (edits.empty()) {
      continue;
    }
    if (!applyEfiImage(copy, edits, scratch_, why)) {
      error_ = image_ + ": " + label + ": " + why;
      return false;
    }
    changes_.installerEntry = true;
    for (const EfiConfigEdit &edit : edits) {
      say("rewriting " + label + ":" + edit.config);
    }
    changes_.partitions.push_back({part, copy});
  }
  return true;
}

// The line of the tool's output that says what went wrong: its first
// FAILURE or SORRY, else its last line.
std::string toolComplaint(const std::string &output) {
  size_t pos = 0;
  std::string_view line, last;
  while (nextToken(output, pos, "\n", line)) {
    if (contains(line, ": FAILURE :") || contains(line, ": SORRY :") ||
        contains(line, ": FATAL :")) {
      return std::string(line);
    }
    last = line;
  }
  return std::string(last);
}

// The time a reproducible build asks for, or nullopt.
std::optional<std::string> sourceDateEpoch() {
  const char *v = std::getenv("SOURCE_DATE_EPOCH");
  if (v == nullptr || *v == '\0' || std::strlen(v) > 12 ||
      std::strspn(v, "0123456789") != std::strlen(v)) {
    return std::nullopt;
  }
  return std::string(v);
}

std::string Remaster::writeCommand(const std::string &tmpOut) const {
  // The boot equipment is replayed before the files are mapped: a boot
  // image replaced first would no longer be the disc's own file, and the
  // tool would drop its El Torito entry.
  std::string cmd = "xorriso -indev " + shellWord(image_) + " -outdev " +
                    shellWord(tmpOut) + " -boot_image any replay";
  std::string paths;
  for (const Mapping &m : changes_.maps) {
    cmd += " -map " + shellWord(m.host) + " " + shellWord(m.iso);
    paths += " " + shellWord(m.iso);
  }
  // The new files look like the disc's own, whoever runs the remaster.
  cmd += " -chown 0" + paths + " -- -chgrp 0" + paths + " -- -chmod 0444" +
         paths + " --";
  if (std::optional<std::string> epoch = sourceDateEpoch()) {
    std::vector<std::string> dirs;
    for (const Mapping &m : changes_.maps) {
      size_t slash = m.iso.rfind('/');
      std::string dir =
          slash == std::string::npos ? "" : m.iso.substr(0, slash);
      if (!dir.empty() &&
          std::find(dirs.begin(), dirs.end(), dir) == dirs.end()) {
        dirs.push_back(dir);
        paths += " " + shellWord(dir);
      }
    }
    cmd += " -alter_date b " + shellWord("=" + *epoch) + paths +
           " -- -alter_date c " + shellWord("=" + *epoch) + paths + " --";
  }
  for (const auto &[part, host] : changes_.partitions) {
    cmd += " -append_partition " + std::to_string(part.number) + " " +
           shellWord(part.type) + " " + shellWord(host);
  }
  return cmd;
}

// The new image until it takes its place: removed on every other path.
class PendingOutput {
 public:
  explicit PendingOutput(std::string path) : path_(std::move(path)) {}
  ~PendingOutput() {
    if (!path_.empty()) {
      hostOps().unlink(path_.c_str());
    }
  }
  PendingOutput(const PendingOutput &) = delete;
  PendingOutput &operator=(const PendingOutput &) = delete;
  const std::string &path() const { return path_; }
  void committed() { path_.clear(); }

 private:
  std::string path_;
};

std::string pendingName(const std::string &out) {
  size_t slash = out.rfind('/');
  std::string dir = slash == std::string::npos ? "" : out.substr(0, slash + 1);
  std::string name = slash == std::string::npos ? out : out.substr(slash + 1);
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string candidate = dir + "." + name + ".remaster-" +
                            std::to_string(hostOps().rand() % 1000000);
    struct stat st;
    if (hostOps().stat(candidate.c_str(), &st) != 0 && errno == ENOENT) {
      return candidate;
    }
  }
  return "";
}

RemasterStatus Remaster::run(const std::string &answerText) {
  say("reading " + image_);
  std::optional<Described> d = describeImage(image_.c_str(), nullptr);
  if (!d) {
    return fail(image_ + ": " + std::strerror(errno));
  }
  std::optional<std::string> installer =
      d->facts.os ? d->facts.os->installer : std::nullopt;
  std::optional<InstallerPlan> plan =
      installer ? planForInstaller(*installer, d->volumeId) : std::nullopt;
  if (!plan) {
    error_ = image_ + ": no installer boot that takes an answer file (" +
             (installer ? "installer " + *installer : "unknown installer") +
             ")";
    return RemasterStatus::NoInstallerBoot;
  }
  args_ = plan->args;
  if (!scratch_.create()) {
    return fail(std::string("cannot make a scratch directory: ") +
                std::strerror(errno));
  }
  std::string why;
  if (!readBootReport(image_, scratch_, before_, why)) {
    return fail(why);
  }
  MediumFiles isolinuxFiles, walkFiles, grubFiles, efiFiles;
  for (MediumFiles *f : {&isolinuxFiles, &walkFiles, &grubFiles, &efiFiles}) {
    if (f->open(image_.c_str()) != img::IMG_OK) {
      return fail(image_ + ": " + std::strerror(errno));
    }
  }
  if (!rewriteIsolinux(isolinuxFiles, *d) ||
      !rewriteGrubMenus(walkFiles, grubFiles) || !rewriteEfiImages(efiFiles)) {
    return RemasterStatus::Failed;
  }
  if (!changes_.installerEntry) {
    error_ = image_ + ": no boot menu entry starts the installer";
    return RemasterStatus::NoInstallerBoot;
  }
  for (const AnswerPlacement &p : plan->files) {
    say("adding " + p.isoPath.substr(1));
    if (!addFile(p.isoPath, p.holdsAnswer ? answerText : std::string_view())) {
      return RemasterStatus::Failed;
    }
  }
  PendingOutput pending(pendingName(out_));
  if (pending.path().empty()) {
    return fail(out_ + ": cannot choose a temporary name beside it");
  }
  say("writing " + out_);
  std::string output;
  if (!runTool(writeCommand(pending.path()), scratch_, &output)) {
    return fail(out_ + ": the mastering tool failed: " + toolComplaint(output));
  }
  say("checking " + out_);
  BootReport after;
  if (!readBootReport(pending.path(), scratch_, after, why)) {
    return fail(out_ + ": " + why);
  }
  std::string lost = compareBootReports(before_, after);
  if (!lost.empty()) {
    return fail(out_ + ": the new image does not boot as the old one: " + lost);
  }
  if (hostOps().rename(pending.path().c_str(), out_.c_str()) != 0) {
    return fail(out_ + ": " + std::strerror(errno));
  }
  pending.committed();
  return RemasterStatus::Ok;
}

bool sameFile(const std::string &a, const std::string &b) {
  if (a == b) {
    return true;
  }
  struct stat sa, sb;
  return hostOps().stat(a.c_str(), &sa) == 0 &&
         hostOps().stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
         sa.st_ino == sb.st_ino;
}

}  // namespace

RemasterStatus remasterMedium(const std::string &imagePath,
                              const std::string &answerFilePath,
                              const std::string &outPath, std::string &error,
                              const ProgressFn &progress) {
  error.clear();
  if (answerFilePath.empty()) {
    error = "no answer file was given";
    return RemasterStatus::BadArguments;
  }
  if (outPath.empty()) {
    error = "no output image was given";
    return RemasterStatus::BadArguments;
  }
  std::string answer;
  {
    struct stat st;
    UniqueFd fd = openUntrustedFile(answerFilePath.c_str(), O_RDONLY, 0, &st);
    if (!fd.valid()) {
      error = answerFilePath + ": " + std::strerror(errno);
      return RemasterStatus::BadArguments;
    }
  }
  if (!readWholeFile(answerFilePath.c_str(), answer, 16u << 20)) {
    error = answerFilePath + ": cannot be read";
    return RemasterStatus::BadArguments;
  }
  if (sameFile(imagePath, outPath)) {
    error = outPath + ": the output names the input image";
    return RemasterStatus::BadArguments;
  }
  Remaster job(imagePath, outPath, progress, error);
  return job.run(answer);
}

}  // namespace gp::medium

GP_EXPORT int Guestprep_RemasterMedium(const char *imagePath,
                                       const char *answerFilePath,
                                       const char *outPath,
                                       char **errorMessage) {
  if (errorMessage != nullptr) {
    *errorMessage = nullptr;
  }
  return gp::abiGuard<int>(
      static_cast<int>(gp::medium::RemasterStatus::Failed), [&]() -> int {
        std::string error;
        gp::medium::RemasterStatus status;
        if (imagePath == nullptr || answerFilePath == nullptr ||
            outPath == nullptr) {
          status = gp::medium::RemasterStatus::BadArguments;
          error = "a path is missing";
        } else {
          status = gp::medium::remasterMedium(imagePath, answerFilePath,
                                              outPath, error);
        }
        if (status != gp::medium::RemasterStatus::Ok &&
            errorMessage != nullptr) {
          *errorMessage = strdup(error.c_str());
          if (*errorMessage == nullptr) {
            gp::outOfMemory();
          }
        }
        return static_cast<int>(status);
      });
}
