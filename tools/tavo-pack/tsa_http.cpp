// RFC 3161 over HTTP (section 3.4): a minimal HTTP/1.0 client and a
// loopback-only responder. One request per connection, Content-Length bodies.
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "commands.h"

namespace tavo_pack {

using namespace tavo::pki;

namespace {

constexpr std::size_t kMaxMessage = 1 << 20;

class UniqueFd {
  public:
    explicit UniqueFd(int fd = -1) : fd_(fd) {}
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    ~UniqueFd() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    int get() const { return fd_; }

  private:
    int fd_;
};

[[noreturn]] void sys_fail(const std::string &what) {
    throw Error(what + ": " + std::strerror(errno));
}

void set_timeouts(int fd, int seconds) {
    timeval tv{seconds, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
}

void send_all(int fd, const std::string &data) {
    std::size_t done = 0;
    while (done < data.size()) {
        ssize_t n = ::send(fd, data.data() + done, data.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            sys_fail("send");
        }
        done += static_cast<std::size_t>(n);
    }
}

// Reads until the peer closes, or until the header and Content-Length bytes
// of body have arrived.
std::string receive_message(int fd) {
    std::string data;
    char buf[4096];
    for (;;) {
        std::size_t end = data.find("\r\n\r\n");
        if (end != std::string::npos) {
            std::string head = data.substr(0, end);
            for (char &ch : head) {
                ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
            }
            std::size_t cl = head.find("\r\ncontent-length:");
            if (cl != std::string::npos &&
                data.size() - end - 4 >= std::stoul(head.substr(cl + 17))) {
                return data;
            }
        }
        ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            sys_fail("receive");
        }
        if (n == 0) {
            return data;
        }
        data.append(buf, static_cast<std::size_t>(n));
        if (data.size() > kMaxMessage) {
            throw Error("HTTP message larger than 1 MiB");
        }
    }
}

struct HttpMessage {
    std::string start_line;
    std::string content_type;
    std::string body;
};

HttpMessage parse_http(const std::string &data) {
    std::size_t end = data.find("\r\n\r\n");
    if (end == std::string::npos) {
        throw Error("incomplete HTTP message");
    }
    HttpMessage m;
    std::string head = data.substr(0, end);
    m.start_line = head.substr(0, head.find("\r\n"));
    m.body = data.substr(end + 4);
    std::size_t pos = 0;
    while ((pos = head.find("\r\n", pos)) != std::string::npos) {
        pos += 2;
        std::string line = head.substr(pos, head.find("\r\n", pos) - pos);
        std::size_t colon = line.find(':');
        std::string key = line.substr(0, colon);
        for (char &ch : key) {
            ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
        }
        if (key == "content-type" && colon != std::string::npos) {
            m.content_type = line.substr(line.find_first_not_of(' ', colon + 1));
        } else if (key == "content-length" && colon != std::string::npos) {
            std::size_t len = std::stoul(line.substr(colon + 1));
            if (len > m.body.size()) {
                throw Error("HTTP body shorter than its Content-Length");
            }
            m.body.resize(len);
        }
    }
    return m;
}

std::pair<std::string, std::string> split_host_port(const std::string &hp) {
    std::size_t colon = hp.rfind(':');
    if (colon == std::string::npos) {
        return {hp, "80"};
    }
    return {hp.substr(0, colon), hp.substr(colon + 1)};
}

std::string http_response(const std::string &status, const std::string &type,
                          const std::string &body) {
    return "HTTP/1.0 " + status + "\r\nContent-Type: " + type +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" +
           body;
}

void serve_one(int fd, const Cert &cert, const Key &key) {
    set_timeouts(fd, 10);
    HttpMessage req;
    try {
        req = parse_http(receive_message(fd));
    } catch (const Error &e) {
        send_all(fd, http_response("400 Bad Request", "text/plain", std::string(e.what()) + "\n"));
        return;
    }
    if (req.start_line.rfind("POST ", 0) != 0) {
        send_all(fd, http_response("405 Method Not Allowed", "text/plain", "POST only\n"));
        return;
    }
    if (req.content_type != "application/timestamp-query") {
        send_all(fd, http_response("415 Unsupported Media Type", "text/plain",
                                   "expected application/timestamp-query\n"));
        return;
    }
    Bytes answer = answer_ts_request(Bytes(req.body.begin(), req.body.end()), cert, key,
                                     std::time(nullptr), random_serial(8));
    send_all(fd, http_response("200 OK", "application/timestamp-reply",
                               std::string(answer.begin(), answer.end())));
}

}  // namespace

Bytes post_ts_request(const std::string &url, const Bytes &request, int timeout_seconds) {
    static const std::string kScheme = "http://";
    if (url.rfind(kScheme, 0) != 0) {
        throw Error("TSA URL must start with http://: " + url);
    }
    std::string rest = url.substr(kScheme.size());
    std::size_t slash = rest.find('/');
    std::string path = slash == std::string::npos ? "/" : rest.substr(slash);
    std::string host_port = rest.substr(0, slash);
    auto [host, port] = split_host_port(host_port);

    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *res = nullptr;
    if (int rc = getaddrinfo(host.c_str(), port.c_str(), &hints, &res); rc != 0) {
        throw Error("cannot resolve " + host + ": " + gai_strerror(rc));
    }
    std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> addrs(res, freeaddrinfo);
    std::string last_error = "no address";
    for (addrinfo *a = addrs.get(); a != nullptr; a = a->ai_next) {
        UniqueFd fd(::socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC, a->ai_protocol));
        if (fd.get() < 0) {
            continue;
        }
        set_timeouts(fd.get(), timeout_seconds);
        if (::connect(fd.get(), a->ai_addr, a->ai_addrlen) != 0) {
            last_error = std::strerror(errno);
            continue;
        }
        send_all(fd.get(), "POST " + path + " HTTP/1.0\r\nHost: " + host_port +
                               "\r\nContent-Type: application/timestamp-query\r\n"
                               "Content-Length: " +
                               std::to_string(request.size()) + "\r\n\r\n" +
                               std::string(request.begin(), request.end()));
        HttpMessage resp = parse_http(receive_message(fd.get()));
        if (resp.start_line.find(" 200") == std::string::npos) {
            throw Error("TSA answered \"" + resp.start_line + "\"");
        }
        if (resp.content_type != "application/timestamp-reply") {
            throw Error("TSA answered with Content-Type \"" + resp.content_type + "\"");
        }
        return Bytes(resp.body.begin(), resp.body.end());
    }
    throw Error("cannot connect to " + host_port + ": " + last_error);
}

int run_tsa_serve(const TsaServeOptions &o) {
    Cert cert;
    Key key;
    sockaddr_in addr{};
    try {
        cert = load_cert(o.cert);
        key = load_key(o.key);
        auto [host, port] = split_host_port(o.listen);
        addr.sin_family = AF_INET;
        if (inet_pton(AF_INET, host.c_str(), &addr.sin_addr) != 1 ||
            (ntohl(addr.sin_addr.s_addr) >> 24) != 127) {
            std::cerr << "tavo-pack: --listen takes a loopback IPv4 address (127.x.x.x:PORT)\n";
            return 2;
        }
        addr.sin_port = htons(static_cast<uint16_t>(std::stoul(port)));
    } catch (const std::exception &e) {
        std::cerr << "tavo-pack: " << e.what() << "\n";
        return 1;
    }
    try {
        UniqueFd lfd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (lfd.get() < 0) {
            sys_fail("socket");
        }
        int one = 1;
        setsockopt(lfd.get(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        if (::bind(lfd.get(), reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
            sys_fail("bind " + o.listen);
        }
        if (::listen(lfd.get(), 8) != 0) {
            sys_fail("listen");
        }
        socklen_t len = sizeof addr;
        getsockname(lfd.get(), reinterpret_cast<sockaddr *>(&addr), &len);
        char ip[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, &addr.sin_addr, ip, sizeof ip);
        std::cout << "listening on " << ip << ":" << ntohs(addr.sin_port) << std::endl;
        for (;;) {
            pollfd p{lfd.get(), POLLIN, 0};
            int r = ::poll(&p, 1, o.idle_timeout > 0 ? o.idle_timeout * 1000 : -1);
            if (r < 0 && errno == EINTR) {
                continue;
            }
            if (r < 0) {
                sys_fail("poll");
            }
            if (r == 0) {
                std::cerr << "tavo-pack: no request within " << o.idle_timeout << " s\n";
                return 1;
            }
            UniqueFd cfd(::accept4(lfd.get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (cfd.get() < 0) {
                continue;
            }
            try {
                serve_one(cfd.get(), cert, key);
            } catch (const std::exception &e) {
                std::cerr << "tavo-pack: request failed: " << e.what() << "\n";
            }
            if (o.once) {
                return 0;
            }
        }
    } catch (const std::exception &e) {
        std::cerr << "tavo-pack: " << e.what() << "\n";
        return 1;
    }
}

}  // namespace tavo_pack
