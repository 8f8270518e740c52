// report/ustar.h
// Archives in the format ustar, which every tar reads, as the bytes of one file. A bug report is such an
// archive; it comes from strangers, so reading one unpacks nothing, follows nothing and believes no length.
// This one format is small, and a Mac's SDK has no header of its library for archives, so it is written here.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace brisko::lab {

struct ArchiveMember {
  std::string name;  // relative, with slashes; 256 bytes at most
  std::string contents;
  bool operator==(const ArchiveMember&) const = default;
};

// Plain files that only their owner may read, in this order; without an owner's name. `modifiedAt` is in
// seconds since 1970. Empty when readUstar() would refuse it: a name is not allowed, or the whole is too
// large.
[[nodiscard]] std::string ustarArchive(const std::vector<ArchiveMember>& members, std::int64_t modifiedAt);

struct ArchiveReading {
  std::vector<ArchiveMember> members = {};  // in their order; none after an error
  std::string error = {};                   // a clause; empty when it was read whole
};

// Refused as a whole: more than 64 MiB, anything but plain files (the extended headers of other formats too),
// a name that is not allowed or appears twice, a wrong checksum, a field that is not a number, a length
// beyond the end, an archive without its end. Allowed names are of printable ASCII, without a part that is
// empty, "." or
// "..".
[[nodiscard]] ArchiveReading readUstar(std::string_view bytes);

}  // namespace brisko::lab
