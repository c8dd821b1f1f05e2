// What an installation medium holds and how its archive is cut into pieces,
// as the installer reads them: the `disks` file lists the files of each
// diskette, one line per diskette, and ends with "end_of_list"; piece n of the
// compressed archive is on diskette n and the small files are on the first.
// The installer reads trans.conf and the string databases under db/ beside
// itself, from whichever diskette is in the drive, so every diskette carries them.
#pragma once

#include <string>
#include <vector>

inline constexpr long kDefaultCapacity = 1457664;  ///< data area of a 1.44 MB DOS diskette
inline constexpr long kClusterSize = 512;  ///< its allocation unit: files take whole clusters
/// The installer reads the disks file into one 4096-byte buffer with its NUL.
inline constexpr size_t kDisksTextMax = 4095;
/// "PKG_TAR.Z99" is the last piece name that fits the 8.3 form of a DOS diskette.
inline constexpr int kDosMaxPieces = 99;
inline constexpr const char *kEndOfList = "end_of_list";

enum class MediumKind { Site, Diskettes };

/// File names on a medium; the DOS set is what a DOS diskette lists.
struct MediumNames {
    const char *disks, *isize, *tsize, *installf, *setup, *help, *piece, *transConf, *db;
    bool capitals;  ///< names under db/ are written in capitals too
};
inline constexpr MediumNames kPlainNames{"disks", "isize",     "tsize",     "installf.rom",
                                         "setup", "setup.hlp", "pkg_tar.z", "trans.conf",
                                         "db",    false};
inline constexpr MediumNames kDosNames{"DISKS", "ISIZE",     "TSIZE",     "INSTALLF.ROM",
                                       "SETUP", "SETUP.HLP", "PKG_TAR.Z", "TRANS.CONF",
                                       "DB",    true};

/// The words written into "installf.rom": what `setup` reads to choose its flow.
const char *KindWord(MediumKind kind);
/// Name of piece `n` (1-based), e.g. "pkg_tar.z3".
std::string PieceName(const MediumNames &names, int n);
/// `name` as the medium spells it: in capitals for the DOS set.
std::string MediumName(const MediumNames &names, std::string name);
/// Bytes that a file of `bytes` occupies on a diskette (whole clusters).
long OnDiskette(long bytes);
/// Bytes that a subdirectory holding `names` occupies on a diskette: its 32-byte
/// entries with "." and "..", and for every name the long-name entries a name
/// outside the 8.3 form needs (counted for all: an upper bound).
long DirectoryOnDiskette(const std::vector<std::string> &names);
/// The disks file for `pieces` pieces: line 1 names piece 1 and the files the
/// installer copies into its work directory, each later line its piece.
std::string DisksText(const MediumNames &names, int pieces);
/// Cuts `archive` bytes into pieces of whole clusters: the first gets `firstRoom`
/// bytes at most, the others `capacity`. Empty when a piece would get no cluster.
std::vector<long> CutPieces(long archive, long firstRoom, long capacity);
/// Cuts the archive for diskettes of `capacity` bytes that each hold files of
/// `everyFiles` bytes on disk (clusters counted) and whose first also holds the
/// disks file and files of `firstFiles` bytes. Empty when the capacity cannot
/// hold them; `*why` then says what was short.
std::vector<long> PlanPieces(const MediumNames &names, long archive, long firstFiles,
                             long everyFiles, long capacity, std::string *why);
