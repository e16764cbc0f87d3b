// SPDX-License-Identifier: MIT
// Many clients of the update service, each with its own address in 127.0.0.0/8. Sends requests and
// prints one line per request; scripts/lib/prove-fleet.py evaluates the lines.
//
//   fleetclients PORT FIRST COUNT THREADS [RATE]
//       checks repeatedly from COUNT addresses, the first of which is FIRST, at most RATE times a
//       second, until SIGTERM; a client that is offered a release requests the start of its package
//   fleetclients PORT FIRST COUNT THREADS once
//       each address checks once
//   fleetclients PORT FIRST COUNT THREADS forward SOURCE
//       the same over kept connections from SOURCE, like a load balancer that forwards the address
//   fleetclients PORT FIRST COUNT THREADS get PATH
//       each address connects; then all request PATH at the same time
//
// A line has the start in seconds since 1970, the seconds taken, the address, a number of bytes,
// and the result. For a check, the bytes are those of the connection in both directions, including
// TLS, and the result is the offered version, "none", a status other than 200, or the failure. For
// a download, they are the bytes of the file and the status.
//
// All but "forward" send a different address in X-Forwarded-For, as a forger would.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace
{

constexpr int kPatienceSeconds = 20; // the updater waits 10 s: a service that hangs is noticed
constexpr size_t kBufferSize = 65536;
constexpr char kCheckBody[] = R"({"clientVersion":"1.0.0","deviceType":"Windows","platform":6})";
constexpr char kPackagePrefix[] = "/packages/Client-";
constexpr char kForgedAddress[] = "203.0.113.9";
constexpr char kNoConnection[] = "no-connection";

volatile std::sig_atomic_t isOver = 0;

enum class Kind { Forever, Once, Forward, Get };

struct Plan {
    in_port_t port = 0;
    in_addr_t first = 0;
    unsigned count = 0;
    unsigned threads = 0;
    Kind kind = Kind::Forever;
    unsigned rate = 0;
    in_addr_t source = 0;
    std::string path;
};

struct Answer {
    std::string failure; // empty when there is an answer
    int status = 0;
    std::string body;             // empty for a download
    unsigned long long bytes = 0; // of the body
};

double Now()
{
    using Seconds = std::chrono::duration<double>;
    return Seconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::string Text(in_addr_t address)
{
    char buffer[INET_ADDRSTRLEN];
    const in_addr network{htonl(address)};
    return inet_ntop(AF_INET, &network, buffer, sizeof buffer);
}

/// A TLS connection to the service, from an address of the loopback.
class Connection
{
public:
    Connection(SSL_CTX *context, in_addr_t source, in_port_t port)
        : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), m_tls(SSL_new(context))
    {
        const int on = 1;
        const timeval patience{kPatienceSeconds, 0};
        // Otherwise each source port could be used once only, for hundreds of thousands of
        // connections.
        setsockopt(m_socket, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof on);
        setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        setsockopt(m_socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        const sockaddr_in from = Endpoint(source, 0);
        const sockaddr_in to = Endpoint(INADDR_LOOPBACK, port);
        if (bind(m_socket, reinterpret_cast<const sockaddr *>(&from), sizeof from) != 0 ||
            connect(m_socket, reinterpret_cast<const sockaddr *>(&to), sizeof to) != 0) {
            m_failure = kNoConnection;
            return;
        }
        SSL_set_fd(m_tls, m_socket);
        SSL_set_tlsext_host_name(m_tls, "localhost");
        if (SSL_connect(m_tls) != 1)
            m_failure = "no-handshake";
    }
    ~Connection()
    {
        if (m_failure.empty())
            SSL_shutdown(m_tls);
        SSL_free(m_tls);
        close(m_socket);
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;
    Connection(Connection &&) = delete;
    Connection &operator=(Connection &&) = delete;

    /// Sends a request and reads the whole answer; returns its body only if @p keepsBody.
    Answer Ask(const std::string &request, bool keepsBody)
    {
        Answer answer;
        answer.failure = m_failure;
        if (!answer.failure.empty())
            return answer;
        if (SSL_write(m_tls, request.data(), static_cast<int>(request.size())) <= 0) {
            answer.failure = m_failure = "not-sent";
            return answer;
        }
        std::string head;
        size_t end = std::string::npos;
        while ((end = head.find("\r\n\r\n")) == std::string::npos) {
            if (!Receive(answer, head))
                return answer;
        }
        answer.status = std::atoi(head.c_str() + std::strlen("HTTP/1.1 "));
        const size_t lengthAt = LowerCase(head.substr(0, end)).find("\r\ncontent-length: ");
        const char *digits = head.c_str() + lengthAt + std::strlen("\r\ncontent-length: ");
        unsigned long long missing =
            lengthAt == std::string::npos ? 0 : std::strtoull(digits, nullptr, 10);
        std::string piece = head.substr(end + 4);
        while (true) {
            missing -= std::min<unsigned long long>(missing, piece.size());
            answer.bytes += piece.size();
            if (keepsBody)
                answer.body += piece;
            if (missing == 0)
                return answer;
            piece.clear();
            if (!Receive(answer, piece))
                return answer;
        }
    }

    /// The bytes that went through the socket so far, in both directions.
    unsigned long long WireBytes() const
    {
        if (m_failure == kNoConnection)
            return 0;
        return BIO_number_read(SSL_get_rbio(m_tls)) + BIO_number_written(SSL_get_wbio(m_tls));
    }

private:
    static sockaddr_in Endpoint(in_addr_t address, in_port_t port)
    {
        sockaddr_in result{};
        result.sin_family = AF_INET;
        result.sin_port = htons(port);
        result.sin_addr.s_addr = htonl(address);
        return result;
    }

    static std::string LowerCase(std::string head)
    {
        for (char &letter : head)
            letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
        return head;
    }

    bool Receive(Answer &answer, std::string &to)
    {
        char buffer[kBufferSize];
        const int received = SSL_read(m_tls, buffer, sizeof buffer);
        if (received <= 0) {
            const bool hasHung = errno == EAGAIN || errno == EWOULDBLOCK;
            answer.failure = m_failure = hasHung ? "hung" : "cut-off";
            return false;
        }
        to.append(buffer, static_cast<size_t>(received));
        return true;
    }

    int m_socket;
    SSL *m_tls;
    std::string m_failure;
};

std::string CheckRequest(const std::string &forwarded, bool keepsConnection)
{
    std::string request = "POST /check HTTP/1.1\r\nHost: localhost\r\nX-Request-From: internal\r\n"
                          "content-type: application/json;charset=UTF-8\r\n";
    request += "X-Forwarded-For: " + forwarded + "\r\n";
    if (!keepsConnection)
        request += "Connection: close\r\n";
    return request + "Content-Length: " + std::to_string(std::strlen(kCheckBody)) + "\r\n\r\n" +
           kCheckBody;
}

std::string GetRequest(const std::string &path, bool isWhole)
{
    return "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n" +
           (isWhole ? "" : "Range: bytes=0-0\r\n") + "\r\n";
}

std::string Decision(const Answer &answer)
{
    if (!answer.failure.empty())
        return answer.failure;
    if (answer.status != 200)
        return std::to_string(answer.status);
    if (answer.body.find("\"update\":\"0\"") != std::string::npos)
        return "none";
    const std::string key = "\"latestVersion\":";
    const size_t at = answer.body.find(key);
    if (at == std::string::npos)
        return "no-decision";
    const size_t begin = answer.body.find('"', at + key.size()) + 1;
    return answer.body.substr(begin, answer.body.find('"', begin) - begin);
}

/// Holds each thread until all have arrived.
class Gate
{
public:
    explicit Gate(unsigned threads) : m_missing(threads) {}
    void Pass()
    {
        std::unique_lock lock(m_mutex);
        if (--m_missing == 0)
            m_everybodyIsHere.notify_all();
        else
            m_everybodyIsHere.wait(lock, [this] { return m_missing == 0; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_everybodyIsHere;
    unsigned m_missing;
};

class Clients
{
public:
    explicit Clients(Plan plan)
        : m_plan(std::move(plan)), m_context(SSL_CTX_new(TLS_client_method())),
          m_gate(m_plan.threads), m_begin(std::chrono::steady_clock::now())
    {
        // Like the updater's check; certificates are tested elsewhere.
        SSL_CTX_set_verify(m_context, SSL_VERIFY_NONE, nullptr);
        SSL_CTX_set_session_cache_mode(m_context, SSL_SESS_CACHE_OFF);
    }
    ~Clients() { SSL_CTX_free(m_context); }
    Clients(const Clients &) = delete;
    Clients &operator=(const Clients &) = delete;
    Clients(Clients &&) = delete;
    Clients &operator=(Clients &&) = delete;

    void Run()
    {
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < m_plan.threads; ++i)
            threads.emplace_back([this] { Work(); });
        for (std::thread &thread : threads)
            thread.join();
    }

private:
    void Work()
    {
        while (isOver == 0) {
            const unsigned number = m_next++;
            if (m_plan.kind != Kind::Forever && number >= m_plan.count)
                return;
            const in_addr_t address = m_plan.first + number % m_plan.count;
            if (m_plan.kind == Kind::Forward)
                CheckForwarded(address);
            else if (m_plan.kind == Kind::Get)
                Download(address);
            else
                Check(address, number);
        }
    }

    void Check(in_addr_t address, unsigned number)
    {
        if (m_plan.rate != 0) {
            std::this_thread::sleep_until(
                m_begin + std::chrono::microseconds(1000000ULL * number / m_plan.rate));
        }
        const double start = Now();
        Connection connection(m_context, address, m_plan.port);
        const Answer answer = connection.Ask(CheckRequest(kForgedAddress, false), true);
        const std::string result = Decision(answer);
        Print(start, address, connection.WireBytes(), result);
        if (m_plan.kind == Kind::Forever && answer.status == 200 && result != "none")
            FindPackage(address, result);
    }

    void FindPackage(in_addr_t address, const std::string &version)
    {
        const double start = Now();
        Connection connection(m_context, address, m_plan.port);
        const Answer answer =
            connection.Ask(GetRequest(kPackagePrefix + version + ".zip", false), false);
        Print(start, address, answer.bytes, "package-" + Status(answer));
    }

    void CheckForwarded(in_addr_t address)
    {
        thread_local std::unique_ptr<Connection> connection;
        const double start = Now();
        const bool isNew = !connection;
        if (isNew)
            connection = std::make_unique<Connection>(m_context, m_plan.source, m_plan.port);
        Answer answer = connection->Ask(CheckRequest(Text(address), true), true);
        // nginx ends a connection after a thousand requests.
        if (!isNew && !answer.failure.empty()) {
            connection = std::make_unique<Connection>(m_context, m_plan.source, m_plan.port);
            answer = connection->Ask(CheckRequest(Text(address), true), true);
        }
        Print(start, address, answer.bytes, Decision(answer));
    }

    void Download(in_addr_t address)
    {
        Connection connection(m_context, address, m_plan.port);
        m_gate.Pass();
        const double start = Now();
        const Answer answer = connection.Ask(GetRequest(m_plan.path, true), false);
        Print(start, address, answer.bytes, Status(answer));
    }

    static std::string Status(const Answer &answer)
    {
        return answer.failure.empty() ? std::to_string(answer.status) : answer.failure;
    }

    static void Print(double start, in_addr_t address, unsigned long long bytes,
                      const std::string &result)
    {
        std::printf("%.3f %.3f %s %llu %s\n", start, Now() - start, Text(address).c_str(), bytes,
                    result.c_str());
    }

    const Plan m_plan;
    SSL_CTX *const m_context;
    Gate m_gate;
    const std::chrono::steady_clock::time_point m_begin;
    std::atomic<unsigned> m_next{0};
};

in_addr_t Address(const char *words)
{
    in_addr result{};
    return inet_pton(AF_INET, words, &result) == 1 ? ntohl(result.s_addr) : INADDR_NONE;
}

bool Read(int count, char **words, Plan &plan)
{
    if (count < 5)
        return false;
    plan.port = static_cast<in_port_t>(std::atoi(words[1]));
    plan.first = Address(words[2]);
    plan.count = static_cast<unsigned>(std::atoi(words[3]));
    plan.threads = static_cast<unsigned>(std::atoi(words[4]));
    const std::string kind = count > 5 ? words[5] : "";
    if (kind == "once") {
        plan.kind = Kind::Once;
    } else if (kind == "forward" && count > 6) {
        plan.kind = Kind::Forward;
        plan.source = Address(words[6]);
    } else if (kind == "get" && count > 6) {
        plan.kind = Kind::Get;
        plan.path = words[6];
        plan.threads = plan.count;
    } else {
        plan.rate = static_cast<unsigned>(std::atoi(kind.c_str()));
    }
    // All sources and the service are on the loopback: nothing leaves this machine.
    constexpr in_addr_t loopback = 0x7F000000;
    const bool isLocal = plan.first >= loopback && plan.first - loopback <= 0xFFFFFF - plan.count;
    return isLocal && plan.port != 0 && plan.count != 0 && plan.threads != 0;
}

} // namespace

int main(int count, char **words)
{
    Plan plan;
    if (!Read(count, words, plan)) {
        std::fputs("usage: fleetclients PORT FIRST COUNT THREADS [RATE | once | forward SOURCE | "
                   "get PATH]\n",
                   stderr);
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGTERM, [](int) { isOver = 1; });
    // Flushed after each line, so that a reader can wait for one.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    Clients(plan).Run();
    return 0;
}
