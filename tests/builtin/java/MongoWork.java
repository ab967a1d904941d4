import com.mongodb.MongoClient;
import com.mongodb.MongoClientOptions;
import com.mongodb.ServerAddress;
import com.mongodb.client.MongoCollection;
import com.mongodb.client.model.Filters;
import org.bson.Document;

/**
 * Two operations of the MongoDB driver against the port given, where no
 * server listens: a count with a filter and an insert, each of which fails
 * once the driver gives up looking for the server.
 */
public class MongoWork {
    public static void main(String[] args) {
        MongoClientOptions options = MongoClientOptions.builder().serverSelectionTimeout(300).build();
        MongoClient client = new MongoClient(new ServerAddress("127.0.0.1", Integer.parseInt(args[0])), options);
        MongoCollection<Document> items = client.getDatabase("shop").getCollection("items");
        try {
            items.count(Filters.eq("name", "pen"));
        } catch (RuntimeException expected) {
            System.out.println("count: " + expected.getClass().getSimpleName());
        }
        try {
            items.insertOne(new Document("name", "pen"));
        } catch (RuntimeException expected) {
            System.out.println("insert: " + expected.getClass().getSimpleName());
        }
        client.close();
    }
}
