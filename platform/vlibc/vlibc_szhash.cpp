// The string hash, and an INI section read into one. The section is parsed by the INI code that
// reads every other INI file of the platform.
#include "platform/vlibc/vlibc_szhash.h"

#include <cerrno>
#include <new>
#include <string>
#include <unordered_map>

#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/ini_text.h"
#include "platform/vlibc/vlibc_error.h"

struct VLIBCSzHash {
  std::unordered_map<std::string, std::string> entries;
};

extern "C" {

PVLIBCSZHASH VLIBCSzHashAlloc(int size) {
  if (size <= 0) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return nullptr;
  }
  auto* hash = new (std::nothrow) VLIBCSzHash;
  if (hash == nullptr) {
    VLIBCErrSet(ERR_OUT_OF_MEMORY);
    return nullptr;
  }
  try {
    hash->entries.reserve(static_cast<size_t>(size));
  } catch (const std::bad_alloc&) {
    delete hash;
    VLIBCErrSet(ERR_OUT_OF_MEMORY);
    return nullptr;
  }
  return hash;
}

void VLIBCSzHashFree(PVLIBCSZHASH hash) {
  delete hash;
}

const char* VLIBCSzHashGetValue(PVLIBCSZHASH hash, const char* key) {
  if (hash == nullptr || key == nullptr) {
    return nullptr;
  }
  const auto it = hash->entries.find(key);
  return it == hash->entries.end() ? nullptr : it->second.c_str();
}

int VLIBCSzHashSetValue(PVLIBCSZHASH hash, const char* key, const char* value) {
  if (hash == nullptr || key == nullptr || value == nullptr) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  try {
    hash->entries.insert_or_assign(key, value);
  } catch (const std::bad_alloc&) {
    VLIBCErrSet(ERR_OUT_OF_MEMORY);
    return -1;
  }
  return 0;
}

int VLIBCSzHashCount(PVLIBCSZHASH hash) {
  return hash == nullptr ? 0 : static_cast<int>(hash->entries.size());
}

void VLIBCSzHashClear(PVLIBCSZHASH hash) {
  if (hash != nullptr) {
    hash->entries.clear();
  }
}

int VLIBCFileGetSection(const char* file, const char* section, PVLIBCSZHASH* hash) {
  if (file == nullptr || section == nullptr || hash == nullptr || *hash == nullptr) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  VLIBCSzHashClear(*hash);
  if (!qrix::ini::IsStorableSectionName(section)) {
    return 0;  // no header can carry it; the lines before the first header have no name
  }
  std::string text;
  if (const int err = qrix::ReadFile(file, &text); err != 0) {
    if (err == ENOENT) {
      return 0;
    }
    VLIBCErrSet(ERR_FILE_READ);
    return -1;
  }
  const std::vector<qrix::ini::Section> sections = qrix::ini::ParseSections(text);
  const qrix::ini::Section* found = qrix::ini::FindSection(sections, section);
  if (found == nullptr) {
    return 0;
  }
  for (const qrix::ini::Entry& e : found->entries) {
    // The first line of a key wins, as everywhere else the INI code reads.
    if (VLIBCSzHashGetValue(*hash, e.key.c_str()) == nullptr &&
        VLIBCSzHashSetValue(*hash, e.key.c_str(), e.value.c_str()) != 0) {
      return -1;
    }
  }
  return 1;
}

}  // extern "C"
