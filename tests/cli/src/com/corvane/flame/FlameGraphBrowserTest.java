package com.corvane.flame;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.testing.Chromium;
import com.corvane.testing.Samples;
import com.corvane.testing.ToolRun;
import java.awt.image.BufferedImage;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import javax.imageio.ImageIO;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The HTML flame graph as a browser shows it: headless Chromium, no network, a fresh profile. */
@Tag("browser")
class FlameGraphBrowserTest {
    @TempDir
    Path dir;

    private String browser(Path page, String... what) throws Exception {
        return Chromium.run(dir, page.toUri().toString(), what);
    }

    private Path flameGraph() throws Exception {
        Path snapshot = Samples.sampled().write(dir.resolve("app.snapshot"));
        Path html = dir.resolve("app.html");
        ToolRun.of("flamegraph", snapshot.toString(), "-o", html.toString()).ok();
        return html;
    }

    @Test
    void theHottestMethodIsDrawnWideAndTheFramesAreColoured() throws Exception {
        Path html = flameGraph();
        String dom = browser(html, "--dump-dom");
        Pattern frame = Pattern.compile("<div class=\"frame\"[^>]*width: (\\d+(?:\\.\\d+)?)px[^>]*>"
                + Pattern.quote(Samples.HOT_METHOD) + "</div>");
        Matcher matcher = frame.matcher(dom);
        double widest = 0;
        while (matcher.find()) {
            widest = Math.max(widest, Double.parseDouble(matcher.group(1)));
        }
        // compute under main holds 700 of 1400 ms: about half the chart's width.
        assertTrue(widest > 450, "the hottest method's widest frame is " + widest + " px wide in:\n" + dom);
        assertTrue(dom.contains("Total 1,400.0 ms"), "status line missing:\n" + dom);

        Path png = dir.resolve("app.png");
        browser(html, "--screenshot=" + png);
        BufferedImage image = ImageIO.read(png.toFile());
        int warm = 0;
        for (int y = 0; y < image.getHeight(); y++) {
            for (int x = 0; x < image.getWidth(); x++) {
                int rgb = image.getRGB(x, y);
                int r = (rgb >> 16) & 0xFF;
                int g = (rgb >> 8) & 0xFF;
                int b = rgb & 0xFF;
                if (r > 180 && b < 160 && r > g) {
                    warm++;
                }
            }
        }
        assertTrue(warm > 20_000, "only " + warm + " flame-coloured pixels on screen");
    }

    @Test
    void aSearchInTheAddressMarksTheMatchesAndSumsThemOnce() throws Exception {
        Path html = flameGraph();
        String dom = Chromium.run(dir, html.toUri() + "#search=work%5C.compute", "--dump-dom");
        Matcher marked = Pattern.compile("<div class=\"frame match\"[^>]*>([^<]*)</div>").matcher(dom);
        List<String> names = new ArrayList<>();
        while (marked.find()) {
            names.add(marked.group(1));
        }
        assertEquals(List.of(Samples.HOT_METHOD, Samples.HOT_METHOD), names.stream().sorted().toList());
        assertTrue(dom.contains("matched 1,000.0 ms (71.43%)"), dom);
    }
}
