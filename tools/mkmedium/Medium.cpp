#include "Medium.h"

#include <cctype>

const char *KindWord(MediumKind kind) {
    return kind == MediumKind::Site ? "installation site" : "diskette";
}

std::string PieceName(const MediumNames &names, int n) {
    return names.piece + std::to_string(n);
}

std::string MediumName(const MediumNames &names, std::string name) {
    if (names.capitals)
        for (char &c : name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return name;
}

long OnDiskette(long bytes) {
    return (bytes + kClusterSize - 1) / kClusterSize * kClusterSize;
}

long DirectoryOnDiskette(const std::vector<std::string> &names) {
    constexpr long kEntry = 32, kLongNameChars = 13;
    long entries = 2;
    for (const std::string &name : names)
        entries += 1 + (static_cast<long>(name.size()) + kLongNameChars - 1) / kLongNameChars;
    return OnDiskette(entries * kEntry);
}

std::string DisksText(const MediumNames &names, int pieces) {
    // installf.rom, trans.conf and db/ are not listed: the installer reads them
    // beside the program and never from its work directory, and a site made
    // from the work directory writes its own installf.rom. The installer copies
    // each listed name with a plain cp, which would refuse the directory db/.
    std::string text = PieceName(names, 1);
    for (const char *file : {names.disks, names.isize, names.tsize, names.setup, names.help})
        text.append(" ").append(file);
    text += '\n';
    for (int n = 2; n <= pieces; ++n) text += PieceName(names, n) + '\n';
    return text + kEndOfList + '\n';
}

std::vector<long> CutPieces(long archive, long firstRoom, long capacity) {
    long first = firstRoom / kClusterSize * kClusterSize;
    long other = capacity / kClusterSize * kClusterSize;
    std::vector<long> pieces;
    if (first <= 0 || other <= 0) return pieces;
    for (long left = archive; left > 0 || pieces.empty();) {
        long piece = std::min(left, pieces.empty() ? first : other);
        pieces.push_back(piece);
        left -= piece;
    }
    return pieces;
}

std::vector<long> PlanPieces(const MediumNames &names, long archive, long firstFiles,
                             long everyFiles, long capacity, std::string *why) {
    if (capacity - everyFiles < kClusterSize) {
        *why = "capacity " + std::to_string(capacity) + " too small: every diskette needs " +
               std::to_string(everyFiles + kClusterSize) + " bytes for " + names.transConf + ", " +
               names.db + "/ and one piece";
        return {};
    }
    // The disks file grows with the number of pieces and so shrinks the first
    // piece; the count only rises from one round to the next, so this ends.
    size_t count = 1;
    for (;;) {
        std::string disks = DisksText(names, static_cast<int>(count));
        long fixed = everyFiles + firstFiles + OnDiskette(static_cast<long>(disks.size()));
        std::vector<long> pieces = CutPieces(archive, capacity - fixed, capacity - everyFiles);
        if (pieces.empty()) {
            *why = "capacity " + std::to_string(capacity) +
                   " too small: the first diskette needs " + std::to_string(fixed + kClusterSize) +
                   " bytes for the installer's files and one piece";
            return pieces;
        }
        if (pieces.size() <= count) return pieces;
        count = pieces.size();
    }
}
