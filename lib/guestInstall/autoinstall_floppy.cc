// File transfer between the host and FAT floppy images, one sector-sized
// chunk at a time through a stack buffer.
#include <cerrno>
#include <string>

#include "guestprep/autoinstall.h"
#include "platform/abi.h"
#include "platform/fatimage.h"
#include "platform/hostio.h"

namespace gp::autoinstall {
namespace {

constexpr uint32_t kChunk = 512;

enum class ReadResult { Full, EndOfFile, Error };

// Reads up to `length` bytes; EndOfFile when fewer than asked were left.
ReadResult readChunk(int fd, uint8_t *buffer, uint32_t length, uint32_t &got) {
  got = 0;
  while (got < length) {
    ssize_t n = hostOps().read(fd, buffer + got, length - got);
    if (n < 0) {
      if (errno == EINTR) {
        continue;
      }
      return ReadResult::Error;
    }
    if (n == 0) {
      return ReadResult::EndOfFile;
    }
    got += static_cast<uint32_t>(n);
  }
  return ReadResult::Full;
}

bool getFile(FatHandle dir, const char *name, const char *hostPath) {
  if (name == nullptr || hostPath == nullptr) {
    return false;
  }
  // Declared first so that, on every path, the image file is closed before
  // the host file.
  UniqueFd host;
  fat::UniqueHandle file;
  if (fat::openFile(dir, name, file.out()) != fat::FAT_OK) {
    return false;
  }
  host = openUntrustedFile(hostPath, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (!host.valid()) {
    return false;
  }
  uint64_t size = 0;
  if (fat::fileSize(file.get(), &size) != fat::FAT_OK) {
    return false;
  }
  uint8_t buffer[kChunk];
  uint32_t offset = 0;
  for (;;) {
    uint32_t got = 0;
    if (fat::readFile(file.get(), offset, buffer, kChunk, &got) !=
        fat::FAT_OK) {
      return false;
    }
    if (got == 0) {
      break;
    }
    if (!writeFull(host.get(), buffer, got)) {
      return false;
    }
    offset += got;
  }
  // The image file first, then the host file.
  file.closeNow();
  return host.reset() == 0;
}

bool addFile(FatHandle dir, const char *hostPath, const char *name) {
  if (hostPath == nullptr || name == nullptr) {
    return false;
  }
  UniqueFd host = openUntrustedFile(hostPath, O_RDONLY);
  if (!host.valid()) {
    return false;
  }
  fat::UniqueHandle file;
  if (fat::openFile(dir, name, file.out()) != fat::FAT_OK &&
      fat::createFile(dir, name, file.out()) != fat::FAT_OK) {
    return false;
  }
  // An existing file is overwritten from its start, not truncated.
  uint8_t buffer[kChunk];
  uint32_t offset = 0;
  bool complete = false;
  for (;;) {
    uint32_t got = 0;
    ReadResult r = readChunk(host.get(), buffer, kChunk, got);
    if (r == ReadResult::Error) {
      break;
    }
    uint32_t written = 0;
    if (fat::writeFile(file.get(), offset, buffer, got, &written) !=
        fat::FAT_OK) {
      break;
    }
    if (r == ReadResult::EndOfFile) {
      complete = true;
      break;
    }
    offset += written;
  }
  // The bytes are on the image only once the close has written them back.
  if (file.closeNow() != fat::FAT_OK) {
    complete = false;
  }
  return complete;
}

bool addFileToWorkDirFloppy(const char *hostPath, const char *name,
                            const char *workDir) {
  if (workDir == nullptr) {
    return false;
  }
  std::string imagePath = joinPath(workDir, "autoinst.flp");
  fat::UniqueHandle volume;
  fat::UniqueHandle root;
  bool result = false;
  if (fat::openVolume(imagePath.c_str(), 1, volume.out()) == fat::FAT_OK &&
      fat::openRootDirectory(volume.get(), root.out()) == fat::FAT_OK) {
    result = addFile(root.get(), hostPath, name);
  }
  // The directory before the volume.
  root.closeNow();
  if (volume.closeNow() != fat::FAT_OK) {
    result = false;
  }
  return result;
}

}  // namespace
}  // namespace gp::autoinstall

GP_EXPORT Bool GetFileFromFloppyImg(FatHandle dir, const char *name,
                                    const char *hostPath) {
  return gp::abiGuard<Bool>(FALSE, [&]() -> Bool {
    return gp::autoinstall::getFile(dir, name, hostPath) ? TRUE : FALSE;
  });
}

GP_EXPORT Bool AddFileToFloppyImg(FatHandle dir, const char *hostPath,
                                  const char *name) {
  return gp::abiGuard<Bool>(FALSE, [&]() -> Bool {
    return gp::autoinstall::addFile(dir, hostPath, name) ? TRUE : FALSE;
  });
}

GP_EXPORT Bool AutoInstall_AddFileToFloppyImg(const char *hostPath,
                                              const char *name,
                                              const char *workDir) {
  return gp::abiGuard<Bool>(FALSE, [&]() -> Bool {
    return gp::autoinstall::addFileToWorkDirFloppy(hostPath, name, workDir)
               ? TRUE
               : FALSE;
  });
}
