#include "videowire.h"

#include "hostruntime.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace videowire {

std::string socketName(const std::string &dir)
{
    return hostruntime::socketName(dir) + "-video";
}

int listenOnSocket(const std::string &dir, std::string *error)
{
    return hostruntime::listenOnAbstractSocket(socketName(dir), SOCK_SEQPACKET | SOCK_NONBLOCK, error);
}

int connectToSocket(const std::string &dir)
{
    sockaddr_un address;
    const socklen_t length = hostruntime::abstractAddress(socketName(dir), &address);
    const int fd = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    int result;
    while ((result = ::connect(fd, reinterpret_cast<const sockaddr *>(&address), length)) != 0
           && errno == EINTR) {
    }
    if (result == 0 && !hostruntime::peerIsThisUser(fd)) {
        result = -1;
        errno = ECONNREFUSED;
    }
    if (result != 0) {
        const int error = errno;
        ::close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

bool sendMessage(int socket, const Message &message, int fd, bool wait)
{
    iovec vector{const_cast<Message *>(&message), sizeof message};
    msghdr header{};
    header.msg_iov = &vector;
    header.msg_iovlen = 1;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    if (fd >= 0) {
        header.msg_control = control;
        header.msg_controllen = sizeof control;
        cmsghdr *item = CMSG_FIRSTHDR(&header);
        item->cmsg_level = SOL_SOCKET;
        item->cmsg_type = SCM_RIGHTS;
        item->cmsg_len = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(item), &fd, sizeof fd);
    }
    const int flags = MSG_NOSIGNAL | (wait ? 0 : MSG_DONTWAIT);
    ssize_t sent;
    while ((sent = ::sendmsg(socket, &header, flags)) < 0 && errno == EINTR) {
    }
    return sent == ssize_t(sizeof message);
}

int receiveMessage(int socket, Message *message, int *fd)
{
    *fd = -1;
    iovec vector{message, sizeof *message};
    msghdr header{};
    header.msg_iov = &vector;
    header.msg_iovlen = 1;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    ssize_t received;
    while ((received = ::recvmsg(socket, &header, MSG_CMSG_CLOEXEC)) < 0 && errno == EINTR) {
    }
    if (received < 0)
        return -1;
    for (cmsghdr *item = CMSG_FIRSTHDR(&header); item; item = CMSG_NXTHDR(&header, item)) {
        if (item->cmsg_level == SOL_SOCKET && item->cmsg_type == SCM_RIGHTS)
            std::memcpy(fd, CMSG_DATA(item), sizeof(int));
    }
    if (received == 0)
        return 0;
    if (received != ssize_t(sizeof *message) || (header.msg_flags & (MSG_TRUNC | MSG_CTRUNC))) {
        if (*fd >= 0) {
            ::close(*fd);
            *fd = -1;
        }
        errno = EPROTO;
        return -1;
    }
    return 1;
}

} // namespace videowire
