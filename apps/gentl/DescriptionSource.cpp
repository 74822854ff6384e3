#include "gentl/DescriptionSource.h"

#include "gentl/Failure.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>

namespace Tool {
namespace {

constexpr char kLocal[] = "local:";
constexpr std::uint64_t kLongestDescription = 64u << 20;
constexpr std::uint64_t kWordSize = 4;
constexpr char kOtherDescription[] =
    "Give the description with --description FILE, or do without: see --payload-size, --start-register and "
    "--stop-register.";

std::string LowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool IsZipName(const std::string& url)
{
    return LowerCase(url).find(".zip") != std::string::npos;
}

std::uint64_t ParseHex(std::string text, const std::string& url)
{
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    const std::size_t begin = LowerCase(text.substr(0, 2)) == "0x" ? 2 : 0;
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data() + begin, text.data() + text.size(), value, 16);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw Failure("the camera's description URL has no readable address and length: " + url,
                      kOtherDescription);
    }
    return value;
}

}  // namespace

LocalUrl ParseLocalUrl(const std::string& url)
{
    if (LowerCase(url.substr(0, std::strlen(kLocal))) != kLocal) {
        throw Failure("the camera's description lies outside the camera: " + url, kOtherDescription);
    }
    const std::string body = url.substr(std::strlen(kLocal), url.find('?') - std::strlen(kLocal));
    const std::size_t first = body.find(';');
    const std::size_t second = first == std::string::npos ? first : body.find(';', first + 1);
    if (second == std::string::npos) {
        throw Failure("the camera's description URL has no address and length: " + url, kOtherDescription);
    }
    LocalUrl parsed{body.substr(body.find_first_not_of('/'), first - body.find_first_not_of('/')),
                    ParseHex(body.substr(first + 1, second - first - 1), url),
                    ParseHex(body.substr(second + 1), url)};
    if (parsed.length == 0 || parsed.length > kLongestDescription) {
        throw Failure("the camera's description URL names a length of " + std::to_string(parsed.length) +
                          " bytes: " + url,
                      kOtherDescription);
    }
    return parsed;
}

std::vector<std::string> DescriptionUrls(const Producer& producer, GenTL::PORT_HANDLE hPort)
{
    std::vector<std::string> urls;
    std::uint32_t count = 0;
    if (producer->GCGetNumPortURLs(hPort, &count) != GenTL::GC_ERR_SUCCESS) {
        count = 0;
        producer.TakeErrorStack();
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        const auto url = producer.Info([&](auto* type, void* buffer, auto* size) {
            return producer->GCGetPortURLInfo(hPort, i, GenTL::URL_INFO_URL, type, buffer, size);
        });
        if (url && url->Text() && !url->Text()->empty()) {
            urls.push_back(*url->Text());
        }
    }
    if (urls.empty()) {
        const std::string url =
            producer.Id("GCGetPortURL", "ask where the camera's description is",
                        [&](char* text, auto* size) { return producer->GCGetPortURL(hPort, text, size); });
        if (url.empty()) {
            throw Failure("the camera doesn't say where its description is", kOtherDescription);
        }
        urls.push_back(url);
    }
    std::stable_partition(urls.begin(), urls.end(), [](const std::string& url) { return !IsZipName(url); });
    return urls;
}

std::string ReadDescription(const Producer& producer, GenTL::PORT_HANDLE hPort, IRegisterPort& registers)
{
    std::optional<Failure> firstFailure;
    for (const std::string& url : DescriptionUrls(producer, hPort)) {
        try {
            const LocalUrl place = ParseLocalUrl(url);
            // Cameras read whole words only. All in one go: of a block of one word a port may turn the bytes
            // round.
            const std::uint64_t words =
                std::max<std::uint64_t>(2, (place.length + kWordSize - 1) / kWordSize);
            const std::vector<std::uint8_t> bytes = registers.Read(place.address, words * kWordSize);
            if (bytes.size() < place.length) {
                throw Failure("the camera gave only " + std::to_string(bytes.size()) + " of the " +
                              std::to_string(place.length) + " bytes of its description");
            }
            return std::string(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(place.length));
        } catch (const Failure& failure) {
            if (!firstFailure) {
                firstFailure = failure;
            }
        }
    }
    throw *firstFailure;  // there is at least one URL
}

}  // namespace Tool
