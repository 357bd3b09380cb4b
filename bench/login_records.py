"""Records of a five-attribute event, and its definition, for programs that time kplog emit."""

SOURCE = """kplog: 1
log_version: "2.0"
events:
  USER_LOGIN:
    id: 1001
    attributes:
      USER_NAME: MBChar64
      PORT: UInt2
      HOST: MBChar128
      ATTEMPTS: UInt4
      SECONDS: Float
    message: "User {USER_NAME} logged in from {HOST} on port {PORT} after {ATTEMPTS} attempts in {SECONDS} s"
"""


def source_of(kinds):
    """So many events with these attributes, whose names are like the name of the first."""
    first = SOURCE.split("  USER_LOGIN:\n")[1]
    return SOURCE + "".join(f"  USER_LOGIN_{i}:\n" + first.replace("id: 1001", f"id: {1001 + i}")
                            for i in range(1, kinds))


def write_records(path, count, kinds=1, day="2026-11-15"):
    """Records of these events in turns."""
    with open(path, "w", encoding="utf-8") as records:
        for i in range(count):
            second = i // 200
            name = f"USER_LOGIN_{i % kinds}" if i % kinds else "USER_LOGIN"
            records.write(
                f'{{"event":"{name}","level":3,'
                f'"time":"{day}T{second // 3600:02}:{second // 60 % 60:02}:{second % 60:02}+00:00",'
                f'"attributes":{{"USER_NAME":"user{i * 7919 % 10007}","PORT":{i * 31 % 65536},'
                f'"HOST":"host{i * 17 % 997}.example.org","ATTEMPTS":{i % 9},'
                f'"SECONDS":{i * 37 % 10000 / 1000:.3f}}}}}\n')
