"""The 101 alphas as expressions of Python, over the functions of alpha101_reference.py.

The formulas are those of Z. Kakushadze, "101 Formulaic Alphas", 2016 (arXiv 1601.00991), as they
stand there but for whole windows.
"""

ALPHAS = {
    1:
        "rank(ts_argmax(signedpower(where((returns < 0), stddev(returns, 20), close), 2.), "
        "5)) - 0.5",
    2:
        "(-1) * correlation(rank(delta(log(volume), 2)), rank((close - open) / open), 6)",
    3:
        "(-1) * correlation(rank(open), rank(volume), 10)",
    4:
        "(-1) * ts_rank(rank(low), 9)",
    5:
        "rank(open - total(vwap, 10) / 10) * ((-1) * size(rank(close - vwap)))",
    6:
        "(-1) * correlation(open, volume, 10)",
    7:
        "where((adv20 < volume), (-1) * ts_rank(size(delta(close, 7)), 60) * "
        "sign(delta(close, 7)), (-1) * 1)",
    8:
        "(-1) * rank(total(open, 5) * total(returns, 5) - delay(total(open, 5) * "
        "total(returns, 5), 10))",
    9:
        "where((0 < ts_min(delta(close, 1), 5)), delta(close, 1), where((ts_max(delta(close, "
        "1), 5) < 0), delta(close, 1), (-1) * delta(close, 1)))",
    10:
        "rank(where((0 < ts_min(delta(close, 1), 4)), delta(close, 1), "
        "where((ts_max(delta(close, 1), 4) < 0), delta(close, 1), (-1) * delta(close, 1))))",
    11:
        "(rank(ts_max(vwap - close, 3)) + rank(ts_min(vwap - close, 3))) * rank(delta(volume,"
        " 3))",
    12:
        "sign(delta(volume, 1)) * ((-1) * delta(close, 1))",
    13:
        "(-1) * rank(covariance(rank(close), rank(volume), 5))",
    14:
        "(-1) * rank(delta(returns, 3)) * correlation(open, volume, 10)",
    15:
        "(-1) * total(rank(correlation(rank(high), rank(volume), 3)), 3)",
    16:
        "(-1) * rank(covariance(rank(high), rank(volume), 5))",
    17:
        "(-1) * rank(ts_rank(close, 10)) * rank(delta(delta(close, 1), 1)) * "
        "rank(ts_rank(volume / adv20, 5))",
    18:
        "(-1) * rank(stddev(size(close - open), 5) + (close - open) + correlation(close, "
        "open, 10))",
    19:
        "(-1) * sign(close - delay(close, 7) + delta(close, 7)) * (1 + rank(1 + "
        "total(returns, 250)))",
    20:
        "(-1) * rank(open - delay(high, 1)) * rank(open - delay(close, 1)) * rank(open - "
        "delay(low, 1))",
    21:
        "where((total(close, 8) / 8 + stddev(close, 8) < total(close, 2) / 2), (-1) * 1, "
        "where((total(close, 2) / 2 < total(close, 8) / 8 - stddev(close, 8)), 1, where((1 < "
        "volume / adv20) | (volume / adv20 == 1), 1, (-1) * 1)))",
    22:
        "(-1) * (delta(correlation(high, volume, 5), 5) * rank(stddev(close, 20)))",
    23:
        "where((total(high, 20) / 20 < high), (-1) * delta(high, 2), 0)",
    24:
        "where((delta(total(close, 100) / 100, 100) / delay(close, 100) < 0.05) | "
        "(delta(total(close, 100) / 100, 100) / delay(close, 100) == 0.05), (-1) * (close - "
        "ts_min(close, 100)), (-1) * delta(close, 3))",
    25:
        "rank((-1) * returns * adv20 * vwap * (high - close))",
    26:
        "(-1) * ts_max(correlation(ts_rank(volume, 5), ts_rank(high, 5), 5), 3)",
    27:
        "where((0.5 < rank(total(correlation(rank(volume), rank(vwap), 6), 2) / 2.0)), (-1) *"
        " 1, 1)",
    28:
        "scale(correlation(adv20, low, 5) + (high + low) / 2 - close)",
    29:
        "ts_min(product(rank(rank(scale(log(total(ts_min(rank(rank((-1) * rank(delta(close - "
        "1, 5)))), 2), 1))))), 1), 5) + ts_rank(delay((-1) * returns, 6), 5)",
    30:
        "(1.0 - rank(sign(close - delay(close, 1)) + sign(delay(close, 1) - delay(close, 2)) "
        "+ sign(delay(close, 2) - delay(close, 3)))) * total(volume, 5) / total(volume, 20)",
    31:
        "rank(rank(rank(decay_linear((-1) * rank(rank(delta(close, 10))), 10)))) + rank((-1) "
        "* delta(close, 3)) + sign(scale(correlation(adv20, low, 12)))",
    32:
        "scale(total(close, 7) / 7 - close) + 20 * scale(correlation(vwap, delay(close, 5), "
        "230))",
    33:
        "rank((-1) * (1 - open / close) ** 1)",
    34:
        "rank(1 - rank(stddev(returns, 2) / stddev(returns, 5)) + (1 - rank(delta(close, "
        "1))))",
    35:
        "ts_rank(volume, 32) * (1 - ts_rank(close + high - low, 16)) * (1 - ts_rank(returns, "
        "32))",
    36:
        "2.21 * rank(correlation(close - open, delay(volume, 1), 15)) + 0.7 * rank(open - "
        "close) + 0.73 * rank(ts_rank(delay((-1) * returns, 6), 5)) + "
        "rank(size(correlation(vwap, adv20, 6))) + 0.6 * rank((total(close, 200) / 200 - "
        "open) * (close - open))",
    37:
        "rank(correlation(delay(open - close, 1), close, 200)) + rank(open - close)",
    38:
        "(-1) * rank(ts_rank(close, 10)) * rank(close / open)",
    39:
        "(-1) * rank(delta(close, 7) * (1 - rank(decay_linear(volume / adv20, 9)))) * (1 + "
        "rank(total(returns, 250)))",
    40:
        "(-1) * rank(stddev(high, 10)) * correlation(high, volume, 10)",
    41:
        "(high * low) ** 0.5 - vwap",
    42:
        "rank(vwap - close) / rank(vwap + close)",
    43:
        "ts_rank(volume / adv20, 20) * ts_rank((-1) * delta(close, 7), 8)",
    44:
        "(-1) * correlation(high, rank(volume), 5)",
    45:
        "(-1) * (rank(total(delay(close, 5), 20) / 20) * correlation(close, volume, 2) * "
        "rank(correlation(total(close, 5), total(close, 20), 2)))",
    46:
        "where((0.25 < (delay(close, 20) - delay(close, 10)) / 10 - (delay(close, 10) - "
        "close) / 10), (-1) * 1, where(((delay(close, 20) - delay(close, 10)) / 10 - "
        "(delay(close, 10) - close) / 10 < 0), 1, (-1) * 1 * (close - delay(close, 1))))",
    47:
        "rank(1 / close) * volume / adv20 * (high * rank(high - close) / (total(high, 5) / "
        "5)) - rank(vwap - delay(vwap, 5))",
    48:
        "indneutralize(correlation(delta(close, 1), delta(delay(close, 1), 1), 250) * "
        "delta(close, 1) / close, subindustry) / total((delta(close, 1) / delay(close, 1)) **"
        " 2, 250)",
    49:
        "where(((delay(close, 20) - delay(close, 10)) / 10 - (delay(close, 10) - close) / 10 "
        "< (-1) * 0.1), 1, (-1) * 1 * (close - delay(close, 1)))",
    50:
        "(-1) * ts_max(rank(correlation(rank(volume), rank(vwap), 5)), 5)",
    51:
        "where(((delay(close, 20) - delay(close, 10)) / 10 - (delay(close, 10) - close) / 10 "
        "< (-1) * 0.05), 1, (-1) * 1 * (close - delay(close, 1)))",
    52:
        "((-1) * ts_min(low, 5) + delay(ts_min(low, 5), 5)) * rank((total(returns, 240) - "
        "total(returns, 20)) / 220) * ts_rank(volume, 5)",
    53:
        "(-1) * delta((close - low - (high - close)) / (close - low), 9)",
    54:
        "(-1) * ((low - close) * open ** 5) / ((low - high) * close ** 5)",
    55:
        "(-1) * correlation(rank((close - ts_min(low, 12)) / (ts_max(high, 12) - ts_min(low, "
        "12))), rank(volume), 6)",
    56:
        "0 - 1 * (rank(total(returns, 10) / total(total(returns, 2), 3)) * rank(returns * "
        "cap))",
    57:
        "0 - 1 * ((close - vwap) / decay_linear(rank(ts_argmax(close, 30)), 2))",
    58:
        "(-1) * ts_rank(decay_linear(correlation(indneutralize(vwap, sector), volume, 3), 7),"
        " 5)",
    59:
        "(-1) * ts_rank(decay_linear(correlation(indneutralize(vwap * 0.728317 + vwap * (1 - "
        "0.728317), industry), volume, 4), 16), 8)",
    60:
        "0 - 1 * (2 * scale(rank((close - low - (high - close)) / (high - low) * volume)) - "
        "scale(rank(ts_argmax(close, 10))))",
    61:
        "(rank(vwap - ts_min(vwap, 16)) < rank(correlation(vwap, adv180, 17)))",
    62:
        "(rank(correlation(vwap, total(adv20, 22), 9)) < rank((rank(open) + rank(open) < "
        "rank((high + low) / 2) + rank(high)))) * (-1)",
    63:
        "(rank(decay_linear(delta(indneutralize(close, industry), 2), 8)) - "
        "rank(decay_linear(correlation(vwap * 0.318108 + open * (1 - 0.318108), total(adv180,"
        " 37), 13), 12))) * (-1)",
    64:
        "(rank(correlation(total(open * 0.178404 + low * (1 - 0.178404), 12), total(adv120, "
        "12), 16)) < rank(delta((high + low) / 2 * 0.178404 + vwap * (1 - 0.178404), 3))) * "
        "(-1)",
    65:
        "(rank(correlation(open * 0.00817205 + vwap * (1 - 0.00817205), total(adv60, 8), 6)) "
        "< rank(open - ts_min(open, 13))) * (-1)",
    66:
        "(rank(decay_linear(delta(vwap, 3), 7)) + ts_rank(decay_linear((low * 0.96633 + low *"
        " (1 - 0.96633) - vwap) / (open - (high + low) / 2), 11), 6)) * (-1)",
    67:
        "rank(high - ts_min(high, 2)) ** rank(correlation(indneutralize(vwap, sector), "
        "indneutralize(adv20, subindustry), 6)) * (-1)",
    68:
        "(ts_rank(correlation(rank(high), rank(adv15), 8), 13) < rank(delta(close * 0.518371 "
        "+ low * (1 - 0.518371), 1))) * (-1)",
    69:
        "rank(ts_max(delta(indneutralize(vwap, industry), 2), 4)) ** "
        "ts_rank(correlation(close * 0.490655 + vwap * (1 - 0.490655), adv20, 4), 9) * (-1)",
    70:
        "rank(delta(vwap, 1)) ** ts_rank(correlation(indneutralize(close, industry), adv50, "
        "17), 17) * (-1)",
    71:
        "most(ts_rank(decay_linear(correlation(ts_rank(close, 3), ts_rank(adv180, 12), 18), "
        "4), 15), ts_rank(decay_linear(rank(low + open - (vwap + vwap)) ** 2, 16), 4))",
    72:
        "rank(decay_linear(correlation((high + low) / 2, adv40, 8), 10)) / "
        "rank(decay_linear(correlation(ts_rank(vwap, 3), ts_rank(volume, 18), 6), 2))",
    73:
        "most(rank(decay_linear(delta(vwap, 4), 2)), ts_rank(decay_linear(delta(open * "
        "0.147155 + low * (1 - 0.147155), 2) / (open * 0.147155 + low * (1 - 0.147155)) * "
        "(-1), 3), 16)) * (-1)",
    74:
        "(rank(correlation(close, total(adv30, 37), 15)) < rank(correlation(rank(high * "
        "0.0261661 + vwap * (1 - 0.0261661)), rank(volume), 11))) * (-1)",
    75:
        "(rank(correlation(vwap, volume, 4)) < rank(correlation(rank(low), rank(adv50), 12)))",
    76:
        "most(rank(decay_linear(delta(vwap, 1), 11)), "
        "ts_rank(decay_linear(ts_rank(correlation(indneutralize(low, sector), adv81, 8), 19),"
        " 17), 19)) * (-1)",
    77:
        "least(rank(decay_linear((high + low) / 2 + high - (vwap + high), 20)), "
        "rank(decay_linear(correlation((high + low) / 2, adv40, 3), 5)))",
    78:
        "rank(correlation(total(low * 0.352233 + vwap * (1 - 0.352233), 19), total(adv40, "
        "19), 6)) ** rank(correlation(rank(vwap), rank(volume), 5))",
    79:
        "(rank(delta(indneutralize(close * 0.60733 + open * (1 - 0.60733), sector), 1)) < "
        "rank(correlation(ts_rank(vwap, 3), ts_rank(adv150, 9), 14)))",
    80:
        "rank(sign(delta(indneutralize(open * 0.868128 + high * (1 - 0.868128), industry), "
        "4))) ** ts_rank(correlation(high, adv10, 5), 5) * (-1)",
    81:
        "(rank(log(product(rank(rank(correlation(vwap, total(adv10, 49), 8)) ** 4), 14))) < "
        "rank(correlation(rank(vwap), rank(volume), 5))) * (-1)",
    82:
        "least(rank(decay_linear(delta(open, 1), 14)), "
        "ts_rank(decay_linear(correlation(indneutralize(volume, sector), open * 0.634196 + "
        "open * (1 - 0.634196), 17), 6), 13)) * (-1)",
    83:
        "rank(delay((high - low) / (total(close, 5) / 5), 2)) * rank(rank(volume)) / ((high -"
        " low) / (total(close, 5) / 5) / (vwap - close))",
    84:
        "signedpower(ts_rank(vwap - ts_max(vwap, 15), 20), delta(close, 4))",
    85:
        "rank(correlation(high * 0.876703 + close * (1 - 0.876703), adv30, 9)) ** "
        "rank(correlation(ts_rank((high + low) / 2, 3), ts_rank(volume, 10), 7))",
    86:
        "(ts_rank(correlation(close, total(adv20, 14), 6), 20) < rank(open + close - (vwap + "
        "open))) * (-1)",
    87:
        "most(rank(decay_linear(delta(close * 0.369701 + vwap * (1 - 0.369701), 1), 2)), "
        "ts_rank(decay_linear(size(correlation(indneutralize(adv81, industry), close, 13)), "
        "4), 14)) * (-1)",
    88:
        "least(rank(decay_linear(rank(open) + rank(low) - (rank(high) + rank(close)), 8)), "
        "ts_rank(decay_linear(correlation(ts_rank(close, 8), ts_rank(adv60, 20), 8), 6), 2))",
    89:
        "ts_rank(decay_linear(correlation(low * 0.967285 + low * (1 - 0.967285), adv10, 6), "
        "5), 3) - ts_rank(decay_linear(delta(indneutralize(vwap, industry), 3), 10), 15)",
    90:
        "rank(close - ts_max(close, 4)) ** ts_rank(correlation(indneutralize(adv40, "
        "subindustry), low, 5), 3) * (-1)",
    91:
        "(ts_rank(decay_linear(decay_linear(correlation(indneutralize(close, industry), "
        "volume, 9), 16), 3), 4) - rank(decay_linear(correlation(vwap, adv30, 4), 2))) * (-1)",
    92:
        "least(ts_rank(decay_linear(((high + low) / 2 + close < low + open), 14), 18), "
        "ts_rank(decay_linear(correlation(rank(low), rank(adv30), 7), 6), 6))",
    93:
        "ts_rank(decay_linear(correlation(indneutralize(vwap, industry), adv81, 17), 19), 7) "
        "/ rank(decay_linear(delta(close * 0.524434 + vwap * (1 - 0.524434), 2), 16))",
    94:
        "rank(vwap - ts_min(vwap, 11)) ** ts_rank(correlation(ts_rank(vwap, 19), "
        "ts_rank(adv60, 4), 18), 2) * (-1)",
    95:
        "(rank(open - ts_min(open, 12)) < ts_rank(rank(correlation(total((high + low) / 2, "
        "19), total(adv40, 19), 12)) ** 5, 11))",
    96:
        "most(ts_rank(decay_linear(correlation(rank(vwap), rank(volume), 3), 4), 8), "
        "ts_rank(decay_linear(ts_argmax(correlation(ts_rank(close, 7), ts_rank(adv60, 4), 3),"
        " 12), 14), 13)) * (-1)",
    97:
        "(rank(decay_linear(delta(indneutralize(low * 0.721001 + vwap * (1 - 0.721001), "
        "industry), 3), 20)) - ts_rank(decay_linear(ts_rank(correlation(ts_rank(low, 7), "
        "ts_rank(adv60, 17), 4), 18), 15), 6)) * (-1)",
    98:
        "rank(decay_linear(correlation(vwap, total(adv5, 26), 4), 7)) - "
        "rank(decay_linear(ts_rank(ts_argmin(correlation(rank(open), rank(adv15), 20), 8), "
        "6), 8))",
    99:
        "(rank(correlation(total((high + low) / 2, 19), total(adv60, 19), 8)) < "
        "rank(correlation(low, volume, 6))) * (-1)",
    100:
        "0 - 1 * ((1.5 * scale(indneutralize(indneutralize(rank((close - low - (high - "
        "close)) / (high - low) * volume), subindustry), subindustry)) - "
        "scale(indneutralize(correlation(close, rank(adv20), 5) - rank(ts_argmin(close, 30)),"
        " subindustry))) * (volume / adv20))",
    101:
        "(close - open) / (high - low + .001)",
}
