// bench_dominators_boost <input> <output|-load>: the same work as the
// dominator step with Boost Graph: reads the input file, builds a
// bidirectional compressed sparse row graph with the virtual root's edges to
// the roots, runs lengauer_tarjan_dominator_tree from the virtual root and
// writes the output file in the same format. "-load" stops after building
// the graph. Prints "RESULT <ms> <peak bytes>".
#include <boost/graph/compressed_sparse_row_graph.hpp>

// The graph concept that the dominator tree checks asks for degree(), which
// the bidirectional compressed graph lacks: in and out degree together.
namespace boost {
template <typename V, typename E, typename G, typename VI, typename EI>
inline EI degree(VI v, const compressed_sparse_row_graph<bidirectionalS, V, E, G, VI, EI>& g) {
    return (EI)(in_degree(v, g) + out_degree(v, g));
}
}  // namespace boost

#include <boost/graph/dominator_tree.hpp>

#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "bench/dominators/BenchSupport.h"

typedef boost::compressed_sparse_row_graph<boost::bidirectionalS, boost::no_property, boost::no_property,
                                           boost::no_property, uint32_t, uint32_t>
    Graph;
typedef boost::graph_traits<Graph>::vertex_descriptor Vertex;

static bool readInt(FILE* in, int32_t& value) {
    return fread(&value, 4, 1, in) == 1;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: bench_dominators_boost <input> <output|-load>\n");
        return 2;
    }
    int64_t startNs = nowNs();
    FILE* in = fopen(argv[1], "rb");
    if (in == nullptr) return 1;
    static char buffer[1 << 20];
    setvbuf(in, buffer, _IOFBF, sizeof(buffer));
    int32_t nc, count, value;
    if (!readInt(in, nc)) return 1;
    std::vector<std::pair<uint32_t, uint32_t>> edges;
    for (int v = 1; v < nc; v++) {
        if (!readInt(in, count)) return 1;
        for (int k = 0; k < count; k++) {
            if (!readInt(in, value)) return 1;
            edges.push_back({(uint32_t)v, (uint32_t)value});
        }
    }
    if (!readInt(in, count)) return 1;
    for (int r = 0; r < count; r++) {
        if (!readInt(in, value)) return 1;
        edges.push_back({0u, (uint32_t)value});
    }
    fclose(in);
    Graph graph(boost::edges_are_unsorted_multi_pass, edges.begin(), edges.end(), (uint32_t)nc);
    std::vector<std::pair<uint32_t, uint32_t>>().swap(edges);
    if (strcmp(argv[2], "-load") == 0) {
        report(startNs);
        return 0;
    }

    std::vector<Vertex> idom(nc, boost::graph_traits<Graph>::null_vertex());
    auto index = get(boost::vertex_index, graph);
    auto idomMap = boost::make_iterator_property_map(idom.begin(), index);
    boost::lengauer_tarjan_dominator_tree(graph, vertex(0, graph), idomMap);

    FILE* out = fopen(argv[2], "wb");
    if (out == nullptr) return 1;
    setvbuf(out, buffer, _IOFBF, sizeof(buffer));
    for (int v = 1; v < nc; v++) {
        int32_t dominator = idom[v] == boost::graph_traits<Graph>::null_vertex() ? -1 : (int32_t)idom[v];
        fwrite(&dominator, 4, 1, out);
    }
    fclose(out);
    report(startNs);
    return 0;
}
