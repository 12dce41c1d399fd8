/* ais_encoder.h -- a test-side AIS encoder: fields in, armoured sentences with checksums out. It shares
** no code with the host's decoder; its bit layouts are checked against gpsd's gpsdecode in ais_test.cpp. */
#ifndef MAREPLOT_AIS_ENCODER_H
#define MAREPLOT_AIS_ENCODER_H

#include <stdint.h>

#include <random>
#include <string>
#include <vector>

#include "support/nmea_sentence.h"

namespace aisenc {

/* A bit string built most significant bit first. */
class Bits {
  public:
    /* Appends the low width bits of v (two's complement); a width above 64 pads with the sign on the left. */
    Bits &put(int64_t v, int width) {
        for (int i = width - 1; i >= 0; i--)
            bits_.push_back((uint8_t)(((uint64_t)v >> (i < 64 ? i : 63)) & 1));
        return *this;
    }
    /* Appends chars six-bit characters of text, padded with '@'. */
    Bits &text(const std::string &s, int chars) {
        static const std::string set = "@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_ !\"#$%&'()*+,-./0123456789:;<=>?";
        for (int i = 0; i < chars; i++) {
            size_t v = i < (int)s.size() ? set.find(s[i]) : 0;
            put(v == std::string::npos ? 0 : (int64_t)v, 6);
        }
        return *this;
    }
    size_t size() const { return bits_.size(); }
    /* The armoured payload; the last character is padded with zeros. */
    std::string armour() const {
        std::string out;
        for (size_t i = 0; i < bits_.size(); i += 6) {
            unsigned v = 0;
            for (size_t j = i; j < i + 6; j++) v = (v << 1) | (j < bits_.size() ? bits_[j] : 0);
            out += (char)(v < 40 ? v + 48 : v + 56);
        }
        return out;
    }

  private:
    std::vector<uint8_t> bits_;
};

/* The message's sentences: one if its payload fits maxChars, else parts under id seqId; fill bits on the last. */
inline std::vector<std::string> sentences(const Bits &b, const std::string &talker = "AIVDM",
                                          size_t maxChars = 60, int seqId = 1) {
    const std::string payload = b.armour();
    std::vector<std::string> out;
    size_t parts = payload.empty() ? 1 : (payload.size() + maxChars - 1) / maxChars;
    for (size_t i = 0; i < parts; i++) {
        std::string body = talker + "," + std::to_string(parts) + "," + std::to_string(i + 1) + "," +
                           (parts > 1 ? std::to_string(seqId) : std::string()) + ",A," +
                           payload.substr(i * maxChars, maxChars) + "," +
                           std::to_string(i + 1 == parts ? (6 - b.size() % 6) % 6 : 0);
        out.push_back(withChecksum(body, '!'));
    }
    return out;
}

/* The standard fixes mt19937_64's sequence: the same seed builds the same messages on every run. */
using Rng = std::mt19937_64;
inline int64_t draw(Rng &rng, int64_t lo, int64_t hi) { return lo + (int64_t)(rng() % (uint64_t)(hi - lo + 1)); }

/* A field: a number of width bits, or a text of chars six-bit characters (width 0); named as the host's record. */
struct Field {
    std::string name;
    int width;
    int64_t value;
    std::string text;
    int chars;
};

/* A generated message. Random texts avoid '"' and '\' and end in no blank, so every decoder agrees on the end. */
struct Message {
    std::vector<Field> fields;
    Bits bits;
    Rng *rng = nullptr;

    Message &add(const Field &f) {
        fields.push_back(f);
        if (f.width)
            bits.put(f.value, f.width);
        else
            bits.text(f.text, f.chars);
        return *this;
    }
    Message &fixed(const std::string &name, int width, int64_t v) { return add(Field{name, width, v, "", 0}); }
    Message &u(const std::string &name, int width) {
        return fixed(name, width, draw(*rng, 0, (int64_t)((1ull << width) - 1)));
    }
    /* Longitude and latitude in 1/10000 minute, now and then the no-position values 181 and 91 degrees. */
    Message &position() {
        bool none = draw(*rng, 0, 9) == 0;
        fixed("lon", 28, none ? 181 * 600000 : draw(*rng, -180 * 600000, 180 * 600000));
        return fixed("lat", 27, none ? 91 * 600000 : draw(*rng, -85 * 600000, 85 * 600000));
    }
    Message &text(const std::string &name, int chars) {
        static const char safe[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 -.,'()/+:?![]^_#$%&*;<=>";
        std::string t;
        for (int64_t len = draw(*rng, 0, chars); len > 0; len--) t += safe[draw(*rng, 0, (int64_t)sizeof(safe) - 2)];
        while (!t.empty() && t.back() == ' ') t.pop_back();
        return add(Field{name, 0, 0, t, chars});
    }
    int64_t num(const std::string &name) const {
        for (const Field &f : fields)
            if (f.name == name) return f.value;
        return -1;
    }
    std::string str(const std::string &name) const {
        for (const Field &f : fields)
            if (f.name == name) return f.text;
        return std::string();
    }
};

/* A random message of a type the host makes rows of (1-5, 9, 18, 19, 21, 24; 124 is 24 B), of mmsi or random. */
inline Message randomMessage(Rng &rng, int type, int64_t mmsi = -1) {
    Message b;
    b.rng = &rng;
    b.fixed("msgid", 6, type == 124 ? 24 : type).u("repeat", 2);
    b.fixed("userid", 30, mmsi >= 0 ? mmsi : draw(rng, 200000000, 799999999));
    switch (type) {
    case 1:
    case 2:
    case 3:
        b.u("nav_status", 4).u("rot", 8).u("sog", 10).u("pos_acc", 1).position();
        b.u("cog", 12).u("hdg", 9).u("utc_sec", 6).fixed("regional", 4, 0).fixed("spare", 1, 0);
        b.u("raim", 1).u("radio", 19);
        break;
    case 4:
        b.fixed("utc_year", 14, draw(rng, 2000, 2030)).fixed("utc_month", 4, draw(rng, 1, 12));
        b.fixed("utc_day", 5, draw(rng, 1, 28)).fixed("utc_hour", 5, draw(rng, 0, 23));
        b.fixed("utc_minute", 6, draw(rng, 0, 59)).fixed("utc_second", 6, draw(rng, 0, 59));
        b.u("pos_acc", 1).position().u("pos_type", 4).fixed("spare", 10, 0);
        b.u("raim", 1).u("radio", 19);
        break;
    case 5:
        b.fixed("version", 2, 0).fixed("imo", 30, draw(rng, 1000000, 9999999));
        b.text("callsign", 7).text("name", 20).u("shiptype", 8);
        b.u("bow", 9).u("stern", 9).u("port", 6).u("starboard", 6).u("pos_type", 4);
        b.fixed("eta", 20, (draw(rng, 1, 12) << 16) | (draw(rng, 1, 31) << 11) |
                               (draw(rng, 0, 23) << 6) | draw(rng, 0, 59));
        b.u("draught", 8).text("dest", 20).u("dte", 1).fixed("spare", 1, 0);
        break;
    case 9:
        b.u("altitude", 12).u("sog", 10).u("pos_acc", 1).position().u("cog", 12);
        b.u("utc_sec", 6).fixed("regional", 8, 0).u("dte", 1).fixed("spare", 3, 0);
        b.u("assigned", 1).u("raim", 1).u("radio", 20);
        break;
    case 18:
        b.fixed("regional1", 8, 0).u("sog", 10).u("pos_acc", 1).position().u("cog", 12);
        b.u("hdg", 9).u("utc_sec", 6).fixed("regional2", 2, 0);
        b.u("unit_flag", 1).u("display_flag", 1).u("dsc_flag", 1).u("band_flag", 1);
        b.u("msg22_flag", 1).u("mode_flag", 1).u("raim", 1).u("radio", 20);
        break;
    case 19:
        b.fixed("regional1", 8, 0).u("sog", 10).u("pos_acc", 1).position().u("cog", 12);
        b.u("hdg", 9).u("utc_sec", 6).fixed("regional2", 4, 0).text("name", 20);
        b.u("shiptype", 8).u("bow", 9).u("stern", 9).u("port", 6).u("starboard", 6);
        b.u("pos_type", 4).u("raim", 1).u("dte", 1).fixed("spare", 5, 0);
        break;
    case 21:
        b.u("type", 5).text("name", 20).u("pos_acc", 1).position();
        b.u("bow", 9).u("stern", 9).u("port", 6).u("starboard", 6).u("pos_type", 4);
        b.u("utc_sec", 6).u("off_position", 1).fixed("regional", 8, 0).u("raim", 1);
        b.u("virtual_aton", 1).u("assigned", 1).fixed("spare", 1, 0);
        if (draw(rng, 0, 1)) b.text("name_ext", 14);
        break;
    case 24:
        b.fixed("part_number", 2, 0).text("name", 20);
        break;
    case 124:
        b.fixed("part_number", 2, 1).u("shiptype", 8).text("vendor_id", 7).text("callsign", 7);
        b.u("bow", 9).u("stern", 9).u("port", 6).u("starboard", 6).fixed("spare", 6, 0);
        break;
    }
    return b;
}

} // namespace aisenc

#endif
