#include "net_device.h"

#include <linux/ethtool.h>
#include <linux/netlink.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>
#include <libdeflate.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace nxsim {

namespace {

// Each frame takes 24 bytes more on the wire than the kernel counts:
// preamble and start delimiter (8), check sequence (4), gap (12).
constexpr uint16_t kWireOverhead = 24;
constexpr uint16_t kMinWireFrame = 64 + 20;

class Fd {
public:
    explicit Fd(int fd) : m_fd(fd) {}
    ~Fd()
    {
        if (m_fd >= 0)
            close(m_fd);
    }
    int Get() const { return m_fd; }

private:
    int m_fd;
};

bool Ioctl(int fd, unsigned long request, ifreq* req, const std::string& name, std::string* error)
{
    std::memset(req->ifr_name, 0, sizeof req->ifr_name);
    std::strncpy(req->ifr_name, name.c_str(), sizeof req->ifr_name - 1);
    if (ioctl(fd, request, req) == 0)
        return true;
    *error = "device " + name + ": " + std::strerror(errno);
    return false;
}

// Netlink attributes appended to a message.
class NetlinkMessage {
public:
    explicit NetlinkMessage(uint16_t type, uint16_t flags)
    {
        m_bytes.resize(NLMSG_HDRLEN);
        auto* h = Header();
        h->nlmsg_type = type;
        h->nlmsg_flags = flags;
        h->nlmsg_seq = 1;
    }
    template <class T>
    void Append(const T& value)
    {
        const size_t at = m_bytes.size();
        m_bytes.resize(at + NLMSG_ALIGN(sizeof value));
        std::memcpy(&m_bytes[at], &value, sizeof value);
    }
    void Attribute(uint16_t type, const void* data, size_t size)
    {
        const size_t at = m_bytes.size();
        m_bytes.resize(at + RTA_ALIGN(RTA_LENGTH(size)));
        rtattr attr{static_cast<unsigned short>(RTA_LENGTH(size)), type};
        std::memcpy(&m_bytes[at], &attr, sizeof attr);
        if (size > 0)
            std::memcpy(&m_bytes[at + RTA_LENGTH(0)], data, size);
    }
    size_t Begin(uint16_t type)
    {
        const size_t at = m_bytes.size();
        Attribute(type, nullptr, 0);
        return at;
    }
    void End(size_t at)
    {
        rtattr attr;
        std::memcpy(&attr, &m_bytes[at], sizeof attr);
        attr.rta_len = static_cast<unsigned short>(m_bytes.size() - at);
        std::memcpy(&m_bytes[at], &attr, sizeof attr);
    }
    nlmsghdr* Header() { return reinterpret_cast<nlmsghdr*>(m_bytes.data()); }
    std::vector<uint8_t>& Finish()
    {
        Header()->nlmsg_len = static_cast<uint32_t>(m_bytes.size());
        return m_bytes;
    }

private:
    std::vector<uint8_t> m_bytes;
};

}  // namespace

bool QueryDevice(const std::string& name, DeviceInfo* info, std::string* error)
{
    Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (fd.Get() < 0) {
        *error = std::string("socket: ") + std::strerror(errno);
        return false;
    }
    ifreq req{};
    if (!Ioctl(fd.Get(), SIOCGIFINDEX, &req, name, error))
        return false;
    info->ifindex = req.ifr_ifindex;
    if (!Ioctl(fd.Get(), SIOCGIFHWADDR, &req, name, error))
        return false;
    std::memcpy(info->mac, req.ifr_hwaddr.sa_data, 6);
    if (!Ioctl(fd.Get(), SIOCGIFMTU, &req, name, error))
        return false;
    info->mtu = static_cast<uint32_t>(req.ifr_mtu);
    ethtool_cmd cmd{};
    cmd.cmd = ETHTOOL_GSET;
    req.ifr_data = reinterpret_cast<char*>(&cmd);
    std::string ignored;
    info->speed = 0;
    if (Ioctl(fd.Get(), SIOCETHTOOL, &req, name, &ignored)) {
        const uint32_t mbits = ethtool_cmd_speed(&cmd);
        if (mbits != 0 && mbits != static_cast<uint32_t>(SPEED_UNKNOWN))
            info->speed = static_cast<uint64_t>(mbits) * 1000000;
    }
    return true;
}

bool DevicePresent(const std::string& name)
{
    return if_nametoindex(name.c_str()) != 0;
}

bool SetLineRate(int ifindex, uint64_t bitRate, uint32_t mtu, std::string* error)
{
    const uint64_t bytesPerSecond = bitRate / 8;
    // A burst of a millisecond, at least two of the largest frames; a queue
    // of 50 ms behind it.
    const uint32_t burst = static_cast<uint32_t>(std::max<uint64_t>(2ull * (mtu + 18 + kWireOverhead),
                                                                    bytesPerSecond / 1000));
    const uint32_t limit = static_cast<uint32_t>(std::min<uint64_t>(burst + bytesPerSecond / 20, 0x7FFFFFFF));

    NetlinkMessage msg(RTM_NEWQDISC, NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE | NLM_F_REPLACE);
    tcmsg tc{};
    tc.tcm_family = AF_UNSPEC;
    tc.tcm_ifindex = ifindex;
    tc.tcm_parent = TC_H_ROOT;
    msg.Append(tc);
    msg.Attribute(TCA_KIND, "tbf", 4);
    const size_t options = msg.Begin(TCA_OPTIONS);
    tc_tbf_qopt qopt{};
    qopt.rate.rate = static_cast<uint32_t>(std::min<uint64_t>(bytesPerSecond, 0xFFFFFFFFu));
    qopt.rate.linklayer = TC_LINKLAYER_ETHERNET;
    qopt.rate.overhead = kWireOverhead;
    qopt.rate.mpu = kMinWireFrame;
    qopt.limit = limit;
    msg.Attribute(TCA_TBF_PARMS, &qopt, sizeof qopt);
    if (bytesPerSecond >= 0xFFFFFFFFu)
        msg.Attribute(TCA_TBF_RATE64, &bytesPerSecond, sizeof bytesPerSecond);
    msg.Attribute(TCA_TBF_BURST, &burst, sizeof burst);
    msg.End(options);

    Fd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    auto fail = [&](const char* what, int code) {
        *error = std::string("line rate: ") + what + ": " + std::strerror(code);
        return false;
    };
    if (fd.Get() < 0)
        return fail("netlink socket", errno);
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    const std::vector<uint8_t>& bytes = msg.Finish();
    if (sendto(fd.Get(), bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&kernel), sizeof kernel) < 0)
        return fail("netlink send", errno);
    uint8_t answer[4096];
    const ssize_t got = recv(fd.Get(), answer, sizeof answer, 0);
    if (got < static_cast<ssize_t>(NLMSG_HDRLEN + sizeof(nlmsgerr)))
        return fail("netlink answer", got < 0 ? errno : EPROTO);
    const auto* reply = reinterpret_cast<const nlmsghdr*>(answer);
    if (reply->nlmsg_type != NLMSG_ERROR)
        return fail("netlink answer", EPROTO);
    const auto* result = reinterpret_cast<const nlmsgerr*>(NLMSG_DATA(reply));
    if (result->error != 0)
        return fail("tbf qdisc", -result->error);
    return true;
}

uint32_t FrameCheckSequence(const uint8_t* data, size_t size)
{
    // The Ethernet polynomial, computed with the processor's carry-less
    // multiplication where it has one: a tenth of a microsecond for the
    // largest frame.
    return libdeflate_crc32(0, data, size);
}

int64_t RealtimeMinusMonotonicNs()
{
    // The realtime reading between two monotonic ones, taken where the pair
    // was read closest together.
    int64_t best = 0;
    int64_t bestSpan = INT64_MAX;
    for (int i = 0; i < 3; ++i) {
        timespec a, r, b;
        clock_gettime(CLOCK_MONOTONIC, &a);
        clock_gettime(CLOCK_REALTIME, &r);
        clock_gettime(CLOCK_MONOTONIC, &b);
        const int64_t an = a.tv_sec * 1000000000LL + a.tv_nsec;
        const int64_t bn = b.tv_sec * 1000000000LL + b.tv_nsec;
        const int64_t rn = r.tv_sec * 1000000000LL + r.tv_nsec;
        if (bn - an < bestSpan) {
            bestSpan = bn - an;
            best = rn - (an + (bn - an) / 2);
        }
    }
    return best;
}

}  // namespace nxsim
