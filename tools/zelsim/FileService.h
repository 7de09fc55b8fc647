// The file receiver on its router port (--files DIR, --transfer-port N, --transfer-fault).
//
// Faults change the answer only: what a message brings is stored all the same. They select messages by their
// number within the file: 0 is the file information, then come the chunks, and the empty message at the end
// has the number behind the last chunk's.
#pragma once

#include <string>
#include <vector>

#include "FileReceiver.h"
#include "PortService.h"

namespace zelsim {

struct FileOptions {
  std::string directory;  // empty for no file receiver
  uint16_t port = 700;
  std::vector<Fault> faults;  // transfer- kinds
};

class FileService : public PortService {
 public:
  FileService(FileOptions options, Trace& trace) : options_(std::move(options)), trace_(trace) {}

  bool Wanted() const { return !options_.directory.empty(); }
  // Empty on success, otherwise what went wrong, for people.
  std::string Open() { return Wanted() ? receiver_.Open(options_.directory) : ""; }

  uint16_t Port() const override { return options_.port; }
  void OnRequest(Connection& connection, const Request& request, uint64_t frame) override;
  void OnClosed(Connection& connection) override { receiver_.Forget(connection.Id()); }

 private:
  const Fault* Find(FaultKind kind, uint64_t number) const;
  FileReceiver::Step Handle(Connection& connection, const Request& request);
  void TraceStep(const Connection& connection, const Request& request, const FileReceiver::Step& step);

  FileOptions options_;
  Trace& trace_;
  FileReceiver receiver_;
};

}  // namespace zelsim
