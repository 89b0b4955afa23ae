#pragma once

#include "support/files.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

/// An HTTP server on 127.0.0.1 that answers each connection with the next of the given texts, once
/// the request's header is there, and closes it. An empty text closes without an answer.
class ScriptedServer {
public:
    explicit ScriptedServer(const std::vector<std::string>& vReplies)
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t uLength = sizeof address;
        bind(m_listener.get(), reinterpret_cast<sockaddr*>(&address), uLength);
        listen(m_listener.get(), 8);
        getsockname(m_listener.get(), reinterpret_cast<sockaddr*>(&address), &uLength);
        origin = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
        m_thread = std::thread([this, vReplies] { serve(vReplies); });
    }
    ~ScriptedServer() { stop(); }

    /// Ends the server and returns the headers of all requests that it got.
    std::vector<std::string> stop()
    {
        shutdown(m_listener.get(), SHUT_RDWR);  // wakes accept()
        if (m_thread.joinable()) {
            m_thread.join();
        }
        return m_vRequests;
    }

    std::string origin;

private:
    void serve(const std::vector<std::string>& vReplies)
    {
        for (const std::string& sReply : vReplies) {
            const FileDescriptor peer(accept(m_listener.get(), nullptr, nullptr));
            std::string sRequest;
            for (char c = 0; !sRequest.ends_with("\r\n\r\n") && read(peer.get(), &c, 1) == 1;) {
                sRequest += c;
            }
            if (send(peer.get(), sReply.data(), sReply.size(), MSG_NOSIGNAL) < 0) {
                return;
            }
            m_vRequests.push_back(sRequest);
        }
    }

    FileDescriptor m_listener{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    std::vector<std::string> m_vRequests;
    std::thread m_thread;
};
