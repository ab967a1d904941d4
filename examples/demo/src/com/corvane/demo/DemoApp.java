package com.corvane.demo;

import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import java.util.concurrent.TimeUnit;

/**
 * The bundled demo: a small "order pricing" service that spends its time in
 * a few recognisable places (parsing, pricing, a slow report), on several
 * threads, for a couple of seconds.
 */
public final class DemoApp {
    public static void main(String[] args) throws Exception {
        long seconds = args.length > 0 ? Long.parseLong(args[0]) : 2;
        long deadline = System.nanoTime() + TimeUnit.SECONDS.toNanos(seconds);
        ExecutorService workers = Executors.newFixedThreadPool(2, runnable -> {
            Thread thread = new Thread(runnable, "pricing-worker");
            thread.setDaemon(true);
            return thread;
        });
        long orders = 0;
        double revenue = 0;
        while (System.nanoTime() < deadline) {
            List<Future<Double>> batch = new ArrayList<>();
            for (int i = 0; i < 8; i++) {
                final int seed = (int) (orders + i);
                batch.add(workers.submit(() -> priceOrder(OrderParser.parse(OrderParser.makeOrderText(seed)))));
            }
            for (Future<Double> price : batch) {
                revenue += price.get();
                orders++;
            }
            if (orders % 400 == 0) {
                Report.write(orders, revenue);
            }
        }
        workers.shutdown();
        System.out.printf("priced %d orders, revenue %.2f%n", orders, revenue);
    }

    static double priceOrder(Map<String, Integer> order) {
        double total = 0;
        for (Map.Entry<String, Integer> line : order.entrySet()) {
            total += Pricing.unitPrice(line.getKey()) * line.getValue();
        }
        return total;
    }

    static final class OrderParser {
        static String makeOrderText(int seed) {
            StringBuilder text = new StringBuilder();
            for (int i = 0; i < 40; i++) {
                text.append("item").append((seed * 31 + i * 7) % 97).append('=').append(1 + (seed + i) % 5).append(';');
            }
            return text.toString();
        }

        static Map<String, Integer> parse(String text) {
            Map<String, Integer> order = new HashMap<>();
            for (String line : text.split(";")) {
                int equals = line.indexOf('=');
                order.merge(line.substring(0, equals), Integer.parseInt(line.substring(equals + 1)), Integer::sum);
            }
            return order;
        }
    }

    static final class Pricing {
        static double unitPrice(String item) {
            // A deliberately expensive lookup: the hot spot of the demo.
            double price = 0;
            int h = item.hashCode();
            for (int i = 0; i < 20000; i++) {
                h = h * 1103515245 + 12345;
                price += (h >>> 16) % 100 / 100.0;
            }
            return price / 20000 * 10 + 1;
        }
    }

    static final class Report {
        static void write(long orders, double revenue) throws InterruptedException {
            StringBuilder report = new StringBuilder();
            for (int i = 0; i < 200; i++) {
                report.append(String.format("%08d %12.2f%n", orders + i, revenue / (i + 1)));
            }
            Thread.sleep(5);
            if (report.length() == 0) {
                System.out.println(report);
            }
        }
    }
}
