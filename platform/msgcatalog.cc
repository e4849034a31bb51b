#include "platform/msgcatalog.h"

#include <sys/stat.h>

#include <cstdlib>
#include <optional>
#include <vector>

#include "platform/configdict.h"
#include "platform/fatal.h"
#include "platform/hostio.h"

namespace gp::msg {
namespace {

std::string &pending() {
  static std::string text;
  return text;
}

std::string_view envValue(const char *name) {
  const char *value = std::getenv(name);
  return value != nullptr ? value : "";
}

// Language names become a path component, so only plain tags pass.
bool plainLanguageTag(std::string_view tag) {
  if (tag.empty() || tag.size() > 64) {
    return false;
  }
  for (char c : tag) {
    bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
              (c >= '0' && c <= '9') || c == '_' || c == '-';
    if (!ok) {
      return false;
    }
  }
  return true;
}

// "de_DE.UTF-8@euro" gives "de_DE", then "de".
std::vector<std::string> languageCandidates() {
  std::string_view locale = envValue("GUESTPREP_LANG");
  for (const char *name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (!locale.empty()) {
      break;
    }
    locale = envValue(name);
  }
  locale = locale.substr(0, locale.find_first_of(".@"));
  if (locale == "C" || locale == "POSIX" || !plainLanguageTag(locale)) {
    return {};
  }
  std::vector<std::string> out{std::string(locale)};
  std::string_view::size_type territory = locale.find('_');
  if (territory != std::string_view::npos && territory > 0) {
    out.emplace_back(locale.substr(0, territory));
  }
  return out;
}

std::string catalogDir() {
  std::string_view dir = envValue("GUESTPREP_MSGDIR");
  return std::string(dir.empty() ? std::string_view(kDefaultCatalogDir) : dir);
}

// Identifies one version of a file, so that an edited catalog is reread.
struct FileStamp {
  dev_t dev = 0;
  ino_t ino = 0;
  off_t size = 0;
  time_t sec = 0;
  long nsec = 0;

  bool operator==(const FileStamp &o) const {
    return dev == o.dev && ino == o.ino && size == o.size && sec == o.sec &&
           nsec == o.nsec;
  }
};

bool locateCatalog(std::string &path, FileStamp &stamp) {
  std::string dir = catalogDir();
  for (const std::string &lang : languageCandidates()) {
    std::string candidate = joinPath(joinPath(dir, lang), kCatalogFileName);
    struct stat st;
    if (hostOps().stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
      path = std::move(candidate);
      stamp = FileStamp{st.st_dev, st.st_ino, st.st_size, st.st_mtim.tv_sec,
                        st.st_mtim.tv_nsec};
      return true;
    }
  }
  return false;
}

struct CachedCatalog {
  std::string path;
  FileStamp stamp;
  ConfigDict dict;
};

// The dictionary service reports load failures as pending messages; a
// catalog that cannot be read only means default texts, so its reasons
// must not end up on some unrelated log line.
void loadQuietly(ConfigDict &dict, const std::string &path) {
  std::string earlier = takePending();
  dict.loadFile(path.c_str(), ConfigDict::LoadMode::kSkipBadLines);
  takePending();
  appendPending(earlier);
}

const ConfigDict *currentCatalog() {
  thread_local CachedCatalog cache;
  std::string path;
  FileStamp stamp;
  if (!locateCatalog(path, stamp)) {
    return nullptr;
  }
  if (path != cache.path || !(stamp == cache.stamp)) {
    cache.dict = ConfigDict();
    cache.path = path;
    cache.stamp = stamp;
    loadQuietly(cache.dict, path);
  }
  return &cache.dict;
}

std::optional<std::string> translation(std::string_view id) {
  const ConfigDict *catalog = currentCatalog();
  if (catalog == nullptr) {
    return std::nullopt;
  }
  const char *value = catalog->get(id);
  if (value == nullptr) {
    return std::nullopt;
  }
  std::string_view text(value);
  if (text.empty() || text.size() > kMaxMessageLength) {
    return std::nullopt;
  }
  return std::string(text);
}

// Substitutes the directives of `text`. With `strict`, any directive other
// than %s, %N$s and %%, or one naming a missing argument, fails; otherwise
// such a directive is copied as it stands and a missing argument is empty.
bool render(std::string_view text, std::initializer_list<std::string_view> args,
            bool strict, std::string &out) {
  out.clear();
  const std::string_view *argv = args.begin();
  size_t next = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i];
      continue;
    }
    std::string_view rest = text.substr(i + 1);
    if (rest.substr(0, 1) == "%") {
      out += '%';
      i += 1;
      continue;
    }
    size_t index = 0;
    size_t used = 0;
    if (rest.substr(0, 1) == "s") {
      index = ++next;
      used = 1;
    } else if (rest.size() >= 3 && rest[0] >= '1' && rest[0] <= '9' &&
               rest.substr(1, 2) == "$s") {
      index = static_cast<size_t>(rest[0] - '0');
      used = 3;
    }
    if (used == 0 || index > args.size()) {
      if (strict) {
        return false;
      }
      if (used == 0) {
        out += '%';
      }
      i += used;
      continue;
    }
    out.append(argv[index - 1]);
    i += used;
  }
  return true;
}

}  // namespace

bool split(std::string_view message, std::string_view &id,
           std::string_view &defaultText) {
  id = {};
  defaultText = {};
  if (message.substr(0, kMarker.size()) != kMarker) {
    return false;
  }
  std::string_view rest = message.substr(kMarker.size());
  std::string_view::size_type close = rest.find(')');
  if (close == std::string_view::npos) {
    return false;
  }
  id = rest.substr(0, close);
  defaultText = rest.substr(close + 1);
  return true;
}

std::string get(std::string_view message) {
  std::string_view id;
  std::string_view text;
  if (!split(message, id, text)) {
    return std::string(message);
  }
  std::optional<std::string> translated = translation(id);
  return translated ? *translated : std::string(text);
}

char *getHeap(std::string_view message) { return heapCopy(get(message)); }

std::string format(std::string_view message,
                   std::initializer_list<std::string_view> args) {
  std::string_view id;
  std::string_view defaultText;
  std::string out;
  if (!split(message, id, defaultText)) {
    render(message, args, false, out);
    return out;
  }
  std::optional<std::string> translated = translation(id);
  if (translated && render(*translated, args, true, out)) {
    return out;
  }
  render(defaultText, args, false, out);
  return out;
}

char *formatHeap(std::string_view message,
                 std::initializer_list<std::string_view> args) {
  return heapCopy(format(message, args));
}

std::string catalogPath() {
  std::string path;
  FileStamp stamp;
  return locateCatalog(path, stamp) ? path : std::string();
}

void appendPending(std::string_view text) { pending().append(text); }

std::string takePending() {
  std::string out;
  out.swap(pending());
  return out;
}

}  // namespace gp::msg
