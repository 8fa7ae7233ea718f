// The files of one conversion.
//
// The film is converted in pieces of equal length. Pieces of different runs fit together, so a
// conversion that was interrupted goes on with the piece that was in work. The pieces are joined
// into one file, which gets its final name after it has been checked.
#pragma once

#include <map>
#include <string>
#include <utility>

namespace convert {

inline constexpr int kPieceSeconds = 10;
// The folder of all conversions on a volume.
inline constexpr char kResultsFolder[] = "@conversions";

class WorkFolder {
 public:
  explicit WorkFolder(std::string path) : path_(std::move(path)) {}

  // Makes the folder anew, without files. Only this user can read it. False on failure.
  bool Make() const;
  bool Exists() const;
  // Removes the folder with all files.
  void Remove() const;

  // The path of the pieces, with "%05d" for the number.
  std::string PiecePattern() const { return path_ + "/slice-%05d.ts"; }
  // The paths of the pieces by their numbers. The last one may be incomplete. A film whose pictures
  // pause has no piece there.
  std::map<int, std::string> Pieces() const;
  // Removes the last piece and returns its number: the piece to go on with. 0 if there is none.
  int KeepCompletePieces() const;
  void RemovePieces() const;

  // The joined file before the check, and the result.
  std::string Joined() const { return path_ + "/joined.mp4"; }
  std::string Result() const { return path_ + "/result.mp4"; }
  // Makes the joined file the result, on the disk too. False on failure.
  bool Accept() const;

  // Is so little space left on its volume that a failure to write is likely?
  bool IsFull() const;

  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace convert
