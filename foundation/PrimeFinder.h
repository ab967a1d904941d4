// Prime capacities for the open-addressing hash tables: ten primes to each
// doubling, so that a doubled capacity lands near twice its old value.
#pragma once

class PrimeFinder {
public:
    static const int PRIME_CAPACITIES_COUNT = 245;
    static const int PRIME_CAPACITIES[PRIME_CAPACITIES_COUNT];

    // Index of n in the table, or the bitwise complement of where it would stand.
    static int binary_search(int n);
    // The first table entry not below n.
    static int nextPrime(int n);
};
