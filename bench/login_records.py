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


def write_records(path, count):
    with open(path, "w", encoding="utf-8") as records:
        for i in range(count):
            second = i // 200
            records.write(
                f'{{"event":"USER_LOGIN","level":3,'
                f'"time":"2026-11-15T{second // 3600:02}:{second // 60 % 60:02}:{second % 60:02}+00:00",'
                f'"attributes":{{"USER_NAME":"user{i * 7919 % 10007}","PORT":{i * 31 % 65536},'
                f'"HOST":"host{i * 17 % 997}.example.org","ATTEMPTS":{i % 9},'
                f'"SECONDS":{i * 37 % 10000 / 1000:.3f}}}}}\n')
