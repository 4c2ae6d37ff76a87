"""Synthetic cases for the benchmark: a KORA RAW v34 case of at least
1,000,000 data lines and a PSLF EPC case of at least 500,000 data lines,
with the record shapes of real files (quoted names with blanks and commas,
empty items, key=value and rating records, ":" separators, continuation
lines).  Deterministic: the same seed gives the same files."""
import os
import random

NAMES = ["NORTH HILL", "RIVER, EAST", "OAK RIDGE 1", "LAKE SIDE", "MILL CREEK", "PINE, WEST", "STONE BRIDGE",
         "HARBOR 2", "VALLEY  NORTH", "CEDAR", "BAY, SOUTH", "GRANITE", "WILLOW", "SUMMIT", "FALLS 3", "DELTA"]
KV = [500.0, 345.0, 230.0, 161.0, 138.0, 115.0, 69.0, 34.5, 13.8]


def name(rng, width=12):
    return ("%s %d" % (rng.choice(NAMES), rng.randrange(1000)))[:width].ljust(width)


def raw_case(path, buses=275_000, seed=11):
    """Returns the number of data lines written."""
    rng = random.Random(seed)
    lines = 0
    with open(path, "w", encoding="latin-1", newline="\n") as f:
        w = f.write
        w("0,   100.00, 34,     0,     1, 60.00     / synthetic VXR benchmark case\n")
        w("BENCHMARK CASE\nSYNTHETIC DATA\n")
        for rec in ("GENERAL, THRSHZ=0.0001, PQBRAK=0.7, BLOWUP=5.0",
                    "GAUSS, ITMX=100, ACCP=1.6, ACCQ=1.6, ACCM=1.0, TOL=0.0001",
                    "NEWTON, ITMXN=20, ACCN=1.0, TOLN=0.1, VCTOLQ=0.1, VCTOLV=0.00001, DVLIM=0.99, NDVFCT=0.99",
                    "ADJUST, ADJTHR=0.005, ACCTAP=1.0, TAPLIM=0.05, SWVBND=100.0, MXTPSS=99, MXSWIM=10",
                    "TYSL, ITMXTY=20, ACCTY=1.0, TOLTY=0.00001",
                    "SOLVER,     , ACTAPS=0, AREAIN=0, PHSHFT=0, DCTAPS=0, SWSHNT=0, FLATST=0, VARLIM=99, NONDIV=0"):
            w(rec + "\n")
        for i in range(1, 13):
            w('RATING,%2d, "RATE%-2d", "RATING SET %-2d, SEASON %d"\n' % (i, i, i, i % 4))
        lines += 18
        w("0 / END OF SYSTEM-WIDE DATA, BEGIN BUS DATA\n")
        for i in range(1, buses + 1):
            w("%7d,'%s',%9.4f,%d,%4d,%4d,%4d,%.5f,%9.4f,1.10000,0.90000,1.10000,0.90000\n"
              % (i, name(rng), rng.choice(KV), 1 + (i % 97 == 0), 1 + i % 40, 1 + i % 90, 1, 1 + rng.uniform(-.05, .05),
                 rng.uniform(-40, 40)))
        lines += buses
        w("0 / END OF BUS DATA, BEGIN LOAD DATA\n")
        for i in range(1, buses + 1, 2):
            empty = ",," if i % 11 == 0 else ",   1,"
            w("%7d,'%-2d',1,%4d%s%8.3f,%8.3f,   0.000,   0.000,   0.000,   0.000,   1,1,0\n"
              % (i, 1 + i % 3, 1 + i % 40, empty, rng.uniform(1, 150), rng.uniform(-10, 60)))
        lines += (buses + 1) // 2
        w("0 / END OF LOAD DATA, BEGIN FIXED SHUNT DATA\n0 / END OF FIXED SHUNT DATA, BEGIN GENERATOR DATA\n")
        for i in range(1, buses + 1, 5):
            w("%7d,'1 ',%9.3f,%9.3f,%9.3f,%9.3f,1.02000,     0,%7.1f,0.00000,0.25000,0.00000,0.00000,1.00000,1,"
              "100.0,%7.1f,0.0,1,1.0000,0,1.0000,0,1.0000,0,1.0000,0,1.0\n"
              % (i, rng.uniform(10, 500), rng.uniform(-50, 100), 300.0, -100.0, 600.0, 550.0))
        lines += (buses + 4) // 5
        w("0 / END OF GENERATOR DATA, BEGIN BRANCH DATA\n")
        nbranch = buses + buses // 5
        for k in range(nbranch):
            i = 1 + k % (buses - 1)
            rates = ",".join(["%7.1f" % rng.choice((250, 500, 900))] * 3 + ["   0.0"] * 9)
            w("%7d,%7d,'%d ',%.5f,%.5f,%.5f,'%s',%s,0.0,0.0,0.0,0.0,1,1,%.1f,1,1.0000\n"
              % (i, i + 1 + k % 3, 1 + k % 3, rng.uniform(.0005, .02), rng.uniform(.005, .2), rng.uniform(0, .4),
                 name(rng, 20), rates, rng.uniform(1, 80)))
        lines += nbranch
        w("0 / END OF BRANCH DATA, BEGIN SYSTEM SWITCHING DEVICE DATA\n"
          "0 / END OF SYSTEM SWITCHING DEVICE DATA, BEGIN TRANSFORMER DATA\n")
        r12 = ",".join(["   0.00"] * 12)
        for k in range(1, buses // 5):
            i = 5 * k
            w("%7d,%7d,      0,'1 ',1,1,1,0.0,0.0,2,'%s',1,   1,1.0000,0,1.0000,0,1.0000,0,1.0000,'YNd1'\n"
              % (i, i + 1, name(rng, 24)))
            w(" 0.00000E+0, %.5E,   100.00\n" % rng.uniform(.02, .15))
            w("1.00000, %7.3f,   0.000,%s, 0,      0, 1.10000, 0.90000, 1.10000, 0.90000,  33, 0, 0.00000, 0.00000,"
              "   0.000,   0\n" % (rng.choice(KV), r12))
            w("1.00000, %7.3f\n" % rng.choice(KV))
            lines += 4
        w("0 / END OF TRANSFORMER DATA, BEGIN AREA DATA\n")
        for a in range(1, 41):
            w("%4d, %7d, 0.000, 10.000,'AREA %d, \"%s\"'\n" % (a, a, a, NAMES[a % len(NAMES)]))
        lines += 40
        for group in ("AREA", "TWO-TERMINAL DC", "VSC DC LINE", "IMPEDANCE CORRECTION", "MULTI-TERMINAL DC",
                      "MULTI-SECTION LINE", "ZONE", "INTER-AREA TRANSFER", "OWNER", "FACTS DEVICE",
                      "SWITCHED SHUNT", "GNE DEVICE", "INDUCTION MACHINE", "SUBSTATION"):
            w("0 / END OF %s DATA\n" % group)
        w("Q\n")
    return lines


def epc_case(path, buses=125_000, seed=13):
    """Returns the number of data lines written."""
    rng = random.Random(seed)
    lines = 0
    with open(path, "w", encoding="latin-1", newline="\n") as f:
        w = f.write
        w("title\nSynthetic VXR benchmark case\n!\ncomments\n!\nsolution parameters\nsbase 100.0000    system mva base\n!\n")
        w("bus data  [%d]               ty  vsched   volt     angle    ar zone  vmax   vmin   date_in date_out pid L own st\n" % buses)
        for i in range(1, buses + 1):
            w('%7d "%s" %8.4f  0  :  %d %.6f %.6f %9.6f %4d %4d 1.1000 0.9000   400101   391231   0 0   1 0\n'
              % (i, name(rng), rng.choice(KV), 1 + (i % 97 == 0), 1 + rng.uniform(-.05, .05), 1.0,
                 rng.uniform(-40, 40), 1 + i % 40, 1 + i % 90))
        lines += buses
        nbranch = buses
        w("branch data  [%d]\n" % nbranch)
        for k in range(nbranch):
            i = 1 + k % (buses - 1)
            j = i + 1
            w('%7d "%s" %6.2f %7d "%s" %6.2f "%d " %3d "%s" : 1 %.6f %.6f %.6f %6.1f %6.1f %6.1f 0.0 0.000 %.1f /\n'
              % (i, name(rng), 230.0, j, name(rng), 230.0, 1 + k % 3, 1, "L %d, O'NEIL" % k if k % 7 == 0 else " ",
                 rng.uniform(.0005, .02), rng.uniform(.005, .2), rng.uniform(0, .4), 500.0, 600.0, 700.0,
                 rng.uniform(1, 80)))
            w("   1    1  0.000000  0.000000  1.000000   400101   391231   0 1  0    0.0    0.0    0.0    0.0   1 1.000\n")
            lines += 2
        ntx = buses // 5
        w("transformer data  [%d]\n" % ntx)
        for k in range(1, ntx + 1):
            i = 5 * k
            w('%7d "%s" %6.2f %7d "%s" %6.2f "1 " " " : 1 1 %7d "%s" %6.2f 0 0 "%s" 0.00 0 " " 0.00 %3d %4d /\n'
              % (i, name(rng), 13.8, i + 1, name(rng), 230.0, i, name(rng), 13.8, name(rng), 1 + i % 40, 1 + i % 90))
            w(" 100.0 0.000000 %.6f 0.000000 0.000000 0.000000 0.000000 13.800000 230.000000 0.000000 0.000000"
              " 0.000000 0.000000 600.0 /\n" % rng.uniform(.02, .15))
            w("   600.0 600.0 0.0 0.000 1.100000 0.900000 1.100000 0.900000 0.006250 1.000000 1.000000 1.000000"
              " 1.000000 /\n")
            w("   400101   391231   0   0\n")
            lines += 4
        ngen = buses // 3
        w("generator data  [%d]\n" % ngen)
        for k in range(1, ngen + 1):
            i = 3 * k
            w('%7d "%s" %6.2f "1 " " " : 1 %7d "%s" %6.2f 1.000000 1.000000 %3d %4d %.6f %.6f 0.000000 %.6f %.6f /\n'
              % (i, name(rng), 13.8, i, name(rng), 13.8, 1 + i % 40, 1 + i % 90, rng.uniform(10, 500), 1000.0,
                 rng.uniform(-50, 100), 9900.0))
            w(' -9900.000000 %7.1f 0.000000 0.000000 0.000000 0.250000 0 " " 0.00 0 " " 0.00   400101   391231'
              '   0   0\n' % rng.choice((100.0, 250.0, 600.0)))
            lines += 2
        nload = buses // 2
        w("load data  [%d]\n" % nload)
        for k in range(1, nload + 1):
            i = 2 * k
            w('%7d "%s" %6.2f "1 " " " : 1 %.6f %.6f 0.000000 0.000000 0.000000 0.000000 %3d %4d   400101   391231'
              '   0 0   1 0\n' % (i, name(rng), 230.0, rng.uniform(1, 150), rng.uniform(-10, 60), 1 + i % 40, 1 + i % 90))
            lines += 1
        w("end\n")
    return lines


def main(folder):
    os.makedirs(folder, exist_ok=True)
    raw = os.path.join(folder, "synthetic.raw")
    epc = os.path.join(folder, "synthetic.epc")
    counts = {}
    if not os.path.exists(raw):
        counts["raw"] = raw_case(raw)
    if not os.path.exists(epc):
        counts["epc"] = epc_case(epc)
    return raw, epc, counts


if __name__ == "__main__":
    import sys
    print(main(sys.argv[1] if len(sys.argv) > 1 else os.path.join("build", "bench")))
