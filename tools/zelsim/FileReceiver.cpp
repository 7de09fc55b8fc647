#include "FileReceiver.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace zelsim {
namespace {

constexpr size_t kMostFiles = 64;

}  // namespace

FileReceiver::~FileReceiver() {
  clients_.clear();  // the files need the directory
  if (directory_ >= 0) close(directory_);
}

std::string FileReceiver::Open(const std::string& directory) {
  directory_ = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory_ >= 0) return {};
  return "cannot store files in " + directory + ": " + std::generic_category().message(errno);
}

FileReceiver::Step FileReceiver::Handle(uint64_t connection, ByteView message) {
  Client& client = clients_[connection];
  if (message.empty()) return OnEnd(client);
  if (const auto info = ParseFileInfo(message)) return OnInfo(client, *info);
  if (const auto chunk = ParseFileChunk(message)) return OnChunk(client, *chunk);
  const auto type = static_cast<uint8_t>(message[0] & ~kLastFlag);
  return {.answer = {.type = type, .error = kMalformed}};
}

FileReceiver::Step FileReceiver::OnInfo(Client& client, const FileInfo& info) {
  Step step{.answer = {.type = kInfoType}, .number = 0, .kind = "info"};
  if (client.files.size() == kMostFiles) {
    step.answer.error = kTooManyFiles;
    return step;
  }
  const uint32_t handle = ++lastHandle_;
  auto file = std::make_unique<IncomingFile>(directory_, handle, info);
  step.answer.error = file->Create();
  step.name = file->Name();
  if (step.answer.error != kTransferOk) return step;
  step.answer.handle = handle;
  client.current = handle;
  client.files[handle] = std::move(file);
  return step;
}

FileReceiver::Step FileReceiver::OnChunk(Client& client, const FileChunk& chunk) {
  Step step{
      .answer = {.last = chunk.endOfFile, .handle = chunk.handle}, .number = chunk.number, .kind = "chunk"};
  const auto found = client.files.find(chunk.handle);
  if (found == client.files.end()) {
    step.answer.error = kUnknownHandle;
    return step;
  }
  client.current = chunk.handle;
  step.name = found->second->Name();
  step.answer.error = found->second->Take(chunk);
  if (chunk.endOfFile) client.files.erase(found);
  return step;
}

FileReceiver::Step FileReceiver::OnEnd(Client& client) {
  Step step{.answer = {.handle = client.current}, .number = 0, .kind = "end"};
  const auto found = client.files.find(client.current);
  if (found == client.files.end()) {
    step.answer.error = kUnknownHandle;
    return step;
  }
  step.number = uint64_t{found->second->ChunkTotal()} + 1;
  step.name = found->second->Name();
  step.answer.last = found->second->Whole();
  if (!step.answer.last) step.answer.error = kSenderStopped;
  client.files.erase(found);
  return step;
}

}  // namespace zelsim
