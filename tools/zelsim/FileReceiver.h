// All files on their way in, by connection and handle; knows no socket.
//
// How the end of a file is told: a chunk that is not full says so itself (type 130), and its answer has the
// last flag. A file of a whole number of full chunks, and an empty file, are followed by an empty message;
// the expected chunk count is known, so the answer to that message has the last flag when every chunk is
// there, and otherwise the error kSenderStopped without the flag. The empty message names no handle: it
// belongs to the file that the connection sent last.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "IncomingFile.h"

namespace zelsim {

class FileReceiver {
 public:
  struct Step {
    TransferAnswer answer{};
    uint64_t number = 0;  // 0 for the information, the chunk's number, or one more than the count at the end
    const char* kind = "bad";  // "info", "chunk", "end" or "bad", for the trace
    std::string name{};        // of the stored file; empty when no file is concerned
  };

  FileReceiver() = default;
  ~FileReceiver();
  FileReceiver(const FileReceiver&) = delete;
  FileReceiver& operator=(const FileReceiver&) = delete;

  // Empty on success, otherwise what went wrong, for people.
  std::string Open(const std::string& directory);

  Step Handle(uint64_t connection, ByteView message);
  // Drops the connection's unfinished files.
  void Forget(uint64_t connection) { clients_.erase(connection); }

 private:
  using File = std::unique_ptr<IncomingFile>;
  struct Client {
    std::map<uint32_t, File> files;
    uint32_t current = 0;  // handle of the file that the last message was about
  };

  Step OnInfo(Client& client, const FileInfo& info);
  Step OnChunk(Client& client, const FileChunk& chunk);
  Step OnEnd(Client& client);

  int directory_ = -1;
  uint32_t lastHandle_ = 0;
  std::map<uint64_t, Client> clients_;
};

}  // namespace zelsim
