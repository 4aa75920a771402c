// EltFilePlayer: plays an element file (.velt, written by EltFileRecorder)
// onto oElt: every element as it was recorded, its timestamp, type, sizes,
// frequency, quality and misc fields with its payload. oElt carries the type
// of the file's first element (its value with its flags, name and unit), so
// it connects where the recorded output did; it appears once `file` names a
// file that can be read.
//
// Time. The first element's timestamp is the log start L; the run's birth
// time plus replay_lead is the replay start S, an engine time. With `paced`
// an element stamped t is handed on at S + (t - L) on the engine's clock:
// a higher speed plays faster, a pause holds the elements back, and a jump
// moves the player to the element that the new time asks for (forward:
// those on the way are passed over; backward: the file is read again from
// its start). Unpaced, the elements go as fast as the readers take them.
//
// An element of another type or of a larger buffer than the first one's
// can't go onto oElt: it is passed over, counted as unfit and told once. A
// file cut off inside an element ends with the elements before it. A file
// that can't be opened, is not an element file or holds no element fails
// the player's birth with one message.
//
// Figures: played, unfit, passed_over, jumps, position (t - L of the last
// element handed on), log_start (L), replay_start_time (S), finished.
#include <cstring>
#include <string>
#include <vector>

#include "EltFiles.h"
#include "FilePlayerModel.h"
#include "ModelTables.h"
#include "veld_clock.h"
#include "veld_dynamic_io_models.h"
#include "veld_io_elt_impl.h"
#include "veld_output.h"

namespace veldor_io {
namespace {

// The file's first element: what the stream carries.
struct Stream {
    VELDIOEltImplementation first;
    std::string failure;
};

// Reads the file's first element into `stream`; false with the reason.
bool ReadFirst(const std::string& path, EltFileReader& reader, std::vector<unsigned char>& bytes, Stream& stream)
{
    if (!reader.Open(path)) {
        stream.failure = reader.Error();
        return false;
    }
    switch (reader.Next(bytes)) {
    case EltRead::Element: break;
    case EltRead::End: stream.failure = path + " holds no element"; return false;
    case EltRead::Broken: stream.failure = reader.Error(); return false;
    }
    if (stream.first.Deserialize(bytes.data(), bytes.size(), true) != 0) {
        stream.failure = path + ": its first element can't be read";
        return false;
    }
    return true;
}

class EltFilePlayer : public FilePlayerModel<EltFilePlayer> {
public:
    using FilePlayerModel::FilePlayerModel;

    void Dynamic() override
    {
        m_outputs.Reset();
        const std::string path = GetStringProperty("file").Beginning();
        if (path.empty()) return;
        EltFileReader reader;
        std::vector<unsigned char> bytes;
        Stream stream;
        if (!ReadFirst(path, reader, bytes, stream)) {
            ReportWarning(("no output yet: " + stream.failure).c_str(), 0);
            return;
        }
        const VELDTypeInfo& type = stream.first.type;
        VELDOutput& output = m_outputs.NewOutput(*this, "oElt", type.value, type.Name() ? type.Name() : "");
        // Exactly the recorded type: a single value stays one, without the
        // vector flag that a new output of no fixed size gets.
        output.SetTypeValue(static_cast<long>(type.value));
        output.SetUnit(type.Unit());
    }

    void Birth() override
    {
        m_told = false;
        if (GetStringProperty("file").Length() == 0) Error("nothing to play: no file is set", 1, ErrorGeneric);
        StartReplay();
        if (m_outputs.Outputs().empty())
            Error((m_path + " could not be read when it was set: set the file again").c_str(), 1, ErrorGeneric);
        m_output = m_outputs.Outputs().front();
        m_type = m_output->Type().value;
        m_output->AllocOutputBuffer(m_bufferSize > 0 ? m_bufferSize : 1, true);
    }

private:
    void Rewind() override
    {
        Stream stream;
        if (!ReadFirst(m_path, m_reader, m_bytes, stream)) Error(stream.failure.c_str(), 1, ErrorGeneric);
        m_bufferSize = stream.first.bufferSize;
        std::int64_t time = stream.first.timestamp;
        Arrived(time, true);
    }

    // The next element into m_bytes and its timestamp into m_time.
    bool Advance(bool quiet) override
    {
        switch (m_reader.Next(m_bytes)) {
        case EltRead::Element: {
            std::int64_t time = TimestampOf(m_bytes);
            Arrived(time, quiet);
            return true;
        }
        case EltRead::Broken:
            if (!quiet && !m_told) ReportWarning((m_reader.Error() + "; the elements before it are played").c_str(), 0);
            m_told = true;
            return false;
        case EltRead::End: return false;
        }
        return false;
    }

    // One element an call.
    bool Play(VELDTimestamp now) override
    {
        VELDIOElt* element = StartWriting(*m_output);
        if (!element) return true;
        VELDIOEltImplementation& slot = *static_cast<VELDIOEltImplementation*>(element);
        const bool fit = slot.Deserialize(m_bytes.data(), m_bytes.size(), false) == 0 && slot.type.value == m_type;
        StopWriting(element, !fit);
        if (fit) {
            Handed(m_time, now);
        } else {
            CountUnfit(m_path + ": an element that does not fit the stream of the first one is passed over; "
                                "such elements are counted as unfit");
        }
        return Next();
    }

    // The timestamp of a serialized element, which every version keeps at
    // the same place.
    static VELDTimestamp TimestampOf(const std::vector<unsigned char>& bytes)
    {
        VELDTimestamp t = 0;
        if (bytes.size() >= 20) std::memcpy(&t, bytes.data() + 12, sizeof t);
        return t;
    }

    VELD::DynamicOutputModelSet m_outputs;
    VELDOutput* m_output = nullptr;
    VELDTypeInfoValue m_type = 0;
    EltFileReader m_reader;
    int m_bufferSize = 0;                // the first element's
    std::vector<unsigned char> m_bytes;  // the next element
    bool m_told = false;
};

VELDPropertyDefinition g_properties[] = {Setting("file", new VELDPropertyValue("")),
                                         Setting("paced", new VELDPropertyValue(true)),
                                         Setting("replay_lead", new VELDPropertyValue(VELDInt64(0)), "us"),
                                         Figure("played"),
                                         Figure("unfit"),
                                         Figure("passed_over"),
                                         Figure("jumps"),
                                         Figure("position", "us"),
                                         Figure("log_start", "us"),
                                         Figure("replay_start_time", "us"),
                                         Figure("finished"),
                                         VELDPropertyDefinition()};

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition EltFilePlayerDefinition = veldor_io::Define<veldor_io::EltFilePlayer>(
    "EltFilePlayer", "1.0.0", nullptr, nullptr, veldor_io::g_properties);
VELD_DECLARE_MODEL(veldor_io::EltFilePlayer, EltFilePlayerDefinition, "EltFilePlayer", "1.0.0");
