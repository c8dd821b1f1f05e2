#include "Medium.h"

const char *KindWord(MediumKind kind) {
    return kind == MediumKind::Site ? "installation site" : "diskette";
}

std::string PieceName(const MediumNames &names, int n) {
    return names.piece + std::to_string(n);
}

long OnDiskette(long bytes) {
    return (bytes + kClusterSize - 1) / kClusterSize * kClusterSize;
}

std::string DisksText(const MediumNames &names, int pieces) {
    // installf.rom is not listed: the installer reads it beside the program and
    // never from its work directory, and a site made from the work directory
    // writes its own.
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

std::vector<long> PlanPieces(const MediumNames &names, long archive, long firstFiles, long capacity,
                             std::string *why) {
    // The disks file grows with the number of pieces and so shrinks the first
    // piece; the count only rises from one round to the next, so this ends.
    size_t count = 1;
    for (;;) {
        std::string disks = DisksText(names, static_cast<int>(count));
        long fixed = firstFiles + OnDiskette(static_cast<long>(disks.size()));
        std::vector<long> pieces = CutPieces(archive, capacity - fixed, capacity);
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
