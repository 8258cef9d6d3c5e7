#include "posix/message_socket.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstring>

namespace posix {

bool SendMessage(int socket, const void* bytes, size_t size, const int* descriptors,
                 size_t descriptor_count) {
  iovec content = {const_cast<void*>(bytes), size};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * MAX_MESSAGE_DESCRIPTORS)] = {};
  msghdr message = {};
  message.msg_iov = &content;
  message.msg_iovlen = 1;
  if (descriptor_count != 0) {
    message.msg_control = control;
    message.msg_controllen = CMSG_SPACE(sizeof(int) * descriptor_count);
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int) * descriptor_count);
    memcpy(CMSG_DATA(header), descriptors, sizeof(int) * descriptor_count);
  }
  ssize_t sent;
  do {
    sent = sendmsg(socket, &message, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return sent == static_cast<ssize_t>(size);
}

Message ReceiveMessage(int socket, void* bytes, size_t capacity) {
  Message result = {-1, {-1, -1, -1}};
  iovec content = {bytes, capacity};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * MAX_MESSAGE_DESCRIPTORS)] = {};
  msghdr message = {};
  message.msg_iov = &content;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  do {
    result.size = recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
  } while (result.size < 0 && errno == EINTR);
  if (result.size <= 0) return result;
  const cmsghdr* header = CMSG_FIRSTHDR(&message);
  if (header != nullptr && header->cmsg_type == SCM_RIGHTS) {
    memcpy(result.descriptors, CMSG_DATA(header), header->cmsg_len - CMSG_LEN(0));
  }
  return result;
}

}  // namespace posix
