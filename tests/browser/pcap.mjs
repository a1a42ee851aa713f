// A small capture in classic pcap: UDP messages of one client and one server over IPv4.

const u16 = (...values) => Buffer.from(values.flatMap((value) => [value >> 8, value & 0xff]));

// Labels may hold any bytes: dots do not separate here.
const nameOf = (labels) =>
  Buffer.concat([...labels.map((label) => Buffer.concat([Buffer.from([Buffer.byteLength(label)]), Buffer.from(label)])), Buffer.from([0])]);

export class Capture {
  frames = [];

  // A query for the A record of the name, and after that many microseconds an answer with the code; none without.
  exchange(labels, {at, after, code = 0}) {
    const id = this.frames.length + 1;
    const question = Buffer.concat([nameOf(labels), u16(1, 1)]);
    this.#frame(at, 40000 + id, 53, Buffer.concat([u16(id, 0x0100, 1, 0, 0, 0), question]));
    if (after === undefined) return this;
    this.#frame(at + after, 53, 40000 + id, Buffer.concat([u16(id, 0x8180 | code, 1, 0, 0, 0), question]));
    return this;
  }

  bytes() {
    const header = Buffer.alloc(24);
    header.writeUInt32LE(0xa1b2c3d4, 0);
    header.writeUInt16LE(2, 4);
    header.writeUInt16LE(4, 6);
    header.writeUInt32LE(65535, 16);
    header.writeUInt32LE(1, 20); // Ethernet
    const byTime = [...this.frames].sort((a, b) => a.at - b.at);
    return Buffer.concat([header, ...byTime.map((frame) => frame.bytes)]);
  }

  #frame(at, from, to, message) {
    const addresses = from === 53 ? [198, 51, 100, 53, 192, 0, 2, 1] : [192, 0, 2, 1, 198, 51, 100, 53];
    const udp = Buffer.concat([u16(from, to, 8 + message.length, 0), message]);
    const ip = Buffer.concat([u16(0x4500, 20 + udp.length, 0, 0, 0x4011, 0), Buffer.from(addresses), udp]);
    const frame = Buffer.concat([Buffer.alloc(12), u16(0x0800), ip]);
    const record = Buffer.alloc(16);
    record.writeUInt32LE(1700000000 + Math.floor(at / 1e6), 0);
    record.writeUInt32LE(at % 1e6, 4);
    record.writeUInt32LE(frame.length, 8);
    record.writeUInt32LE(frame.length, 12);
    this.frames.push({at, bytes: Buffer.concat([record, frame])});
  }
}
